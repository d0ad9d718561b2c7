// SPDX-License-Identifier: MIT
#include <csignal>
#include <ctime>
#include <iostream>
#include <memory>

#include "Commands.h"
#include "Scenario.h"

namespace {

struct Options {
    double rate{10};
    double seconds{1e6};
    std::uint32_t seed{1};
    bool boards{false};
    bool quiet{false};
};

/// Waits for a point in time, or for a signal that tells the program to end.
class Waiter {
 public:
    /// From now on the signals only end waiting.
    Waiter() {
        sigemptyset(&signals);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&signals, number);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    /// @return whether no signal has come
    bool operator()(sim::Scenario::Clock::time_point time) const {
        using std::chrono::nanoseconds;
        constexpr std::int64_t SECOND = 1'000'000'000;
        const std::int64_t left =
            std::max<std::int64_t>(0, nanoseconds(time - sim::Scenario::Clock::now()).count());
        const timespec wait{static_cast<std::time_t>(left / SECOND),
                            static_cast<long>(left % SECOND)};
        return ::sigtimedwait(&signals, nullptr, &wait) < 0;
    }

 private:
    sigset_t signals{};
};

void run(const std::string& root, const Options& options) {
    const sim::Device device(root);
    sim::Scenario scenario(device, options.seed, {true, options.boards});
    scenario.run(options.rate, std::chrono::duration<double>(options.seconds), Waiter(),
                 [&options](const std::string& step) {
                     if (!options.quiet) {
                         std::cout << step << std::endl;  // NOLINT(performance-avoid-endl)
                     }
                 });
}

}  // namespace

void addRunCommand(CLI::App& app, const std::shared_ptr<SimOptions>& common) {
    constexpr double HIGHEST_RATE = 1e6;
    constexpr double LONGEST = 1e6;
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "run", "Let inputs toggle, analogs move, sensors come and go; print what is done");
    command->add_option("--rate", options->rate, "Steps per second, up to 1000000")
        ->type_name("HZ")
        ->check(CLI::Range(0.001, HIGHEST_RATE).description(""))
        ->capture_default_str();
    command->add_option("--seconds", options->seconds, "How long (until Ctrl-C)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, LONGEST).description(""));
    command->add_option("--seed", options->seed, "The same seed gives the same steps")
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("--boards", options->boards,
                      "Pull boards and put them back, too; a service hears no more changes of a "
                      "board that was pulled");
    command->add_flag("--quiet", options->quiet, "Print nothing");
    command->callback([options, common] { run(common->root, *options); });
}
