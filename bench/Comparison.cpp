// SPDX-License-Identifier: MIT
#include "Comparison.h"

#include <Poco/NumberFormatter.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>

#include "Build.h"

namespace {

/// The median, and the interval that holds the true one in 95 of 100 cases.
struct Estimate {
    double middle;
    double low;
    double high;
};

/// Takes the interval's ends from the sorted numbers, where the binomial distribution puts them;
/// nothing is assumed of how the numbers are distributed.
Estimate estimate(std::vector<double> numbers) {
    std::sort(numbers.begin(), numbers.end());
    const auto count = static_cast<double>(numbers.size());
    const double reach = 0.98 * std::sqrt(count);
    const auto at = [&numbers, count](double place) {
        return numbers[static_cast<std::size_t>(std::clamp(place, 0.0, count - 1))];
    };
    return {median(numbers), at(std::floor(count / 2 - reach)), at(std::ceil(count / 2 + reach))};
}

template <typename Operation>
Estimate estimatePairs(const std::vector<double>& service, const std::vector<double>& bare,
                       Operation operation) {
    std::vector<double> results;
    std::transform(service.begin(), service.end(), bare.begin(), std::back_inserter(results),
                   operation);
    return estimate(std::move(results));
}

constexpr const char* ROUNDS_VARIABLE = "IO_MAPPING_BENCH_ROUNDS";

bool isForPrograms() {
    return std::getenv(ROUNDS_VARIABLE) != nullptr;
}

}  // namespace

int roundsToTake(int usual) {
    return isForPrograms() ? std::atoi(std::getenv(ROUNDS_VARIABLE)) : usual;
}

double percentile99(std::vector<double> numbers) {
    const auto place = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() * 99 / 100);
    std::nth_element(numbers.begin(), place, numbers.end());
    return *place;
}

double median(std::vector<double> numbers) {
    const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
    std::nth_element(numbers.begin(), middle, numbers.end());
    if (numbers.size() % 2 == 1) {
        return *middle;
    }
    return (*std::max_element(numbers.begin(), middle) + *middle) / 2;
}

Comparison::Comparison(const std::string& whatIsMeasured, const std::string& unitOfSamples,
                       Target targetToMeet)
    : what(whatIsMeasured), unit(unitOfSamples), target(targetToMeet) {}

void Comparison::printHeading() {
    if (isForPrograms()) {
        return;
    }
    std::printf(
        "All processes share one core. A sample of a call is the median of 5 to 20 calls in\n"
        "a row. Both sides take samples in turns; the columns give their medians, and the median\n"
        "of the ratios of neighbours. A target with a unit is for the median of the differences.\n"
        "On a busy machine go by the CPU time of a start.\n"
        "%s"
        "\n"
        "%-46s %12s %12s   %-21s   %-16s %5s\n",
        EMULATED ? "On an emulated processor only the ratios mean anything: no times are given.\n"
                 : "",
        "", "bare", "service", "ratio (95 % interval)", "target", "pairs");
}

void Comparison::printForPrograms() const {
    std::printf("%s\t%s\t%.6g\t%.6g\t%.6g\t%.6g\n", what.c_str(), unit.c_str(), median(bareSamples),
                median(serviceSamples),
                estimatePairs(serviceSamples, bareSamples, std::divides<>()).middle,
                estimatePairs(serviceSamples, bareSamples, std::minus<>()).middle);
}

void Comparison::print() const {
    if (isForPrograms()) {
        printForPrograms();
        return;
    }
    const Estimate ratio = estimatePairs(serviceSamples, bareSamples, std::divides<>());
    std::printf("%-46s %12s %12s   %.3f (%.3f-%.3f)   %-16s %5zu\n", what.c_str(),
                withUnit(median(bareSamples)).c_str(), withUnit(median(serviceSamples)).c_str(),
                ratio.middle, ratio.low, ratio.high, verdict().c_str(), bareSamples.size());
    std::fflush(stdout);
}

std::string Comparison::withUnit(double number) const {
    if (EMULATED && unit != "kB") {
        return "-";
    }
    const int decimals = number < 10 ? 2 : number < 1000 ? 1 : 0;
    return Poco::NumberFormatter::format(number, decimals) + " " + unit;
}

std::string Comparison::verdict() const {
    const auto judge = [this](const std::string& limit, auto operation) {
        const double reached = estimatePairs(serviceSamples, bareSamples, operation).middle;
        return limit + (reached <= target.limit ? " met" : " NOT MET");
    };
    switch (target.kind) {
        case Target::RATIO:
            return judge(Poco::NumberFormatter::format(target.limit, 2), std::divides<>());
        case Target::DIFFERENCE:
            return EMULATED ? "-" : judge("+" + withUnit(target.limit), std::minus<>());
        default:
            return "-";
    }
}
