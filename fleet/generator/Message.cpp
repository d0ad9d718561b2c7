// SPDX-License-Identifier: MIT
#include "Message.h"

#include <charconv>

namespace {

constexpr std::string_view DUE(R"("monotonic":)");
constexpr int CHANGES = 10;
constexpr int FIRST_ADDRESS = 401;

}  // namespace

std::string messageOf(std::uint64_t sequence, Clock::time_point due) {
    std::string text = R"({"sequence":)" + std::to_string(sequence) +
                       R"(,"session":"5e551017","boot":"00000000-0000-4000-8000-000000000000",)"
                       R"("time":"2026-01-02T03:04:05.678Z",)";
    text.append(DUE)
        .append(std::to_string(due.time_since_epoch().count()))
        .append(R"(,"synchronised":true,"changes":[)");
    for (int i = 0; i < CHANGES; ++i) {
        text += (i > 0 ? ",[" : "[") + std::to_string(FIRST_ADDRESS + i) + "," +
                std::to_string(sequence * CHANGES) + ",50]";
    }
    return text + "]}";
}

std::optional<Clock::time_point> dueOf(std::string_view message) {
    const auto place = message.find(DUE);
    if (place == std::string_view::npos) {
        return {};
    }
    const std::string_view digits = message.substr(place + DUE.size());
    Clock::rep due = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), due).ec != std::errc()) {
        return {};
    }
    return Clock::time_point(Clock::duration(due));
}
