// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <vector>

/// The middle of some numbers; at least one.
double median(std::vector<double> numbers);

/// The number that 99 of 100 of some numbers do not exceed; at least one.
double percentile99(std::vector<double> numbers);

/// How many rounds a benchmark takes: the number in the environment variable
/// IO_MAPPING_BENCH_ROUNDS, or else `usual`.
int roundsToTake(int usual);

/// How long something takes, in microseconds.
template <typename Action>
double timeOf(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

/// How long something takes each time when it is done several times in a row.
template <typename Action>
std::vector<double> timesOf(int runs, const Action& action) {
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(runs));
    for (int i = 0; i < runs; ++i) {
        times.push_back(timeOf(action));
    }
    return times;
}

/// What the service must reach in comparison with the bare side, if anything.
struct Target {
    enum Kind { NONE, RATIO, DIFFERENCE } kind{NONE};
    double limit{0};
};

/// One line of the table: the bare side and the service measured in pairs, each pair in immediate
/// succession, so that whatever disturbs the machine hits both alike.
class Comparison {
 public:
    Comparison(const std::string& whatIsMeasured, const std::string& unitOfSamples,
               Target targetToMeet = {});

    /// Takes pairs of samples, with the sides in alternating order.
    ///
    /// @param pairs how many
    /// @param bare takes and returns a sample of the bare side
    /// @param service the same for the service
    template <typename Bare, typename Service>
    void measure(int pairs, const Bare& bare, const Service& service) {
        for (int i = 0; i < pairs; ++i) {
            const bool bareFirst = bareSamples.size() % 2 == 0;
            const double first = bareFirst ? bare() : service();
            const double second = bareFirst ? service() : bare();
            bareSamples.push_back(bareFirst ? first : second);
            serviceSamples.push_back(bareFirst ? second : first);
        }
    }

    static void printHeading();
    /// Prints a line of the table. Where the environment variable IO_MAPPING_BENCH_ROUNDS is set,
    /// the line is for programs: what is measured, its unit, the medians of both sides, of the
    /// ratios and of the differences, with a tabulator between each.
    void print() const;

 private:
    void printForPrograms() const;
    std::string withUnit(double number) const;
    std::string verdict() const;

    std::string what;
    std::string unit;
    Target target;
    std::vector<double> bareSamples;
    std::vector<double> serviceSamples;
};
