// SPDX-License-Identifier: MIT
#include <glib-unix.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "ServiceFollower.h"
#include "Terminal.h"
#include "TopTable.h"
#include "WakeUp.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "support/GLibOwners.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How often the screen is looked after when nothing happens: highlights end, and the terminal may
/// have another size.
constexpr std::chrono::duration<double> TICK(0.25);

/// Changes that come faster are drawn together.
constexpr std::chrono::milliseconds DRAW_INTERVAL(50);

constexpr const char* KEYS = "Up, Down, PgUp, PgDn: move   Space: switch 0 and 1   q: end";

struct Options {
    std::vector<std::string> types;
    std::string group;
};

/// Owns a source of the default main context that sets a flag.
class FlagSource {
 public:
    explicit FlagSource(GSource* newSource) : source(newSource) {
        g_source_attach(source.get(), nullptr);
    }
    ~FlagSource() { g_source_destroy(source.get()); }
    FlagSource(const FlagSource&) = delete;
    FlagSource& operator=(const FlagSource&) = delete;

 private:
    SourceOwner source;
};

/// Has a signal set a flag.
GSource* sourceOfSignal(int signal, bool& flag) {
    GSource* const source = g_unix_signal_source_new(signal);
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
            *static_cast<bool*>(data) = true;
            return G_SOURCE_CONTINUE;
        },
        &flag, nullptr);
    return source;
}

/// Has IoMapping::run() return when there is a key to read. The flag is set when there never will
/// be one again.
GSource* sourceOfKeys(bool& isGone) {
    GSource* const source = g_unix_fd_source_new(
        STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR));
    const GUnixFDSourceFunc heed = [](gint /*fd*/, GIOCondition condition,
                                      gpointer data) -> gboolean {
        // A terminal that has gone has something to read, too: its end.
        if ((condition & (G_IO_HUP | G_IO_ERR)) != 0) {
            *static_cast<bool*>(data) = true;
        }
        return G_SOURCE_CONTINUE;
    };
    // GLib calls it with the arguments of its own type.
    g_source_set_callback(source, G_SOURCE_FUNC(heed), &isGone, nullptr);
    return source;
}

/// Shows the registers until the user has seen enough.
class Top {
 public:
    Top(const Labels& labels, const TopTable::Filter& filter) : table(labels, filter) {}

    void run() {
        load();
        if (table.isEmpty()) {
            throw Failure("there is no such register to show");
        }
        wakeAfter(TICK);
        while (!isOver) {
            draw();
            waitForNews();
            service.follow();
            for (Key key = terminal.readKey(); key != Key::NONE; key = terminal.readKey()) {
                heed(key);
            }
            poll();
        }
    }

 private:
    void load() {
        cache.load();
        table.clear();
        for (const auto& [address, entry] : cache.registers()) {
            table.set(entry, Clock::now());
        }
        isLoaded = true;
    }

    void draw() {
        std::string line = notice.empty() ? KEYS : notice;
        if (question) {
            line = "write " + std::to_string(question->value) + " to " +
                   nameOf(question->info.address, question->info) + "? y/n";
        }
        terminal.draw(table.lines(terminal.height(), terminal.width(), line, Clock::now()));
        lastDraw = Clock::now();
    }

    /// Waits until something happens, and takes in what happens soon after.
    void waitForNews() {
        io.run(true);
        while (Clock::now() < lastDraw + DRAW_INTERVAL && io.run(false)) {
        }
    }

    /// Of a service that has gone nothing can be asked.
    void forget() {
        isLoaded = false;
        question.reset();
        cache.invalidate();
    }

    void heed(Key key) {
        if (const auto answered = std::exchange(question, {})) {
            if (key == Key::YES) {
                write(*answered);
            } else if (key == Key::QUIT) {
                isOver = true;
            }
            return;
        }
        // That the service has gone is told until it is back.
        if (isLoaded) {
            notice.clear();
        }
        if (key == Key::QUIT) {
            isOver = true;
        } else if (key == Key::SWITCH && isLoaded) {
            question = table.switchOf();
            notice =
                question ? "" : "only a register that is 0 or 1 and can be written is switched";
        } else {
            table.move(distanceOf(key));
        }
    }

    int distanceOf(Key key) const {
        const int page = std::max(terminal.height() - 2, 1);
        switch (key) {
            case Key::UP:
                return -1;
            case Key::DOWN:
                return 1;
            case Key::PAGE_UP:
                return -page;
            case Key::PAGE_DOWN:
                return page;
            case Key::FIRST:
                return -MOST_ROWS;
            case Key::LAST:
                return MOST_ROWS;
            default:
                return 0;
        }
    }

    void write(const TopTable::Switch& wanted) {
        try {
            io.writeValue(wanted.info.address, wanted.value);
            cache.refresh(wanted.info.address);
        } catch (const std::exception& e) {
            notice = nameOf(wanted.info.address, wanted.info) + ": " + reasonOf(e);
        }
    }

    void poll() {
        if (!isLoaded || cache.nextPoll() > Clock::now()) {
            return;
        }
        try {
            cache.poll(Clock::now());
        } catch (const std::exception& e) {
            notice = reasonOf(e);
        }
    }

    /// More than a device can have, and far from the end of an int.
    static constexpr int MOST_ROWS = 1'000'000;

    TopTable table;
    IoMapping io;
    ServiceFollower service{{[this] { forget(); }, [this] { load(); },
                             [this](const std::string& text) { notice = text; }}};
    RegisterCache cache{io, PollPlan(),
                        [this](const CachedRegister& entry) { table.set(entry, Clock::now()); }};
    bool isOver{false};
    FlagSource interrupted{sourceOfSignal(SIGINT, isOver)};
    FlagSource terminated{sourceOfSignal(SIGTERM, isOver)};
    FlagSource keys{sourceOfKeys(isOver)};
    Terminal terminal;
    bool isLoaded{false};
    std::optional<TopTable::Switch> question;  ///< What waits for the user's answer.
    std::string notice;
    Clock::time_point lastDraw;
};

void top(const Options& options) {
    const TopTable::Filter filter{parseTypes(options.types), options.group};
    const Labels labels = deviceLabels();
    probeService(probeLimit(Clock::time_point::max()), ServiceStart::ALLOWED);
    Top(labels, filter).run();
}

}  // namespace

void addTopCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("top", "Show a table that follows the values, in a terminal");
    command->add_option("--type", options->types, "Only registers of this type; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    command->add_option("--group", options->group, "Only registers of this group of the labels")
        ->type_name("GROUP");
    command->footer(
        "Keys:\n  Up, Down, PgUp, PgDn, Home, End  select a register\n"
        "  Space  switch it: 1 where 0 is, and 0 where 1 is; y confirms\n"
        "  q, Ctrl-C  end\n\n"
        "Example:\n  iomap top --type relay");
    command->callback([options] { top(*options); });
}
