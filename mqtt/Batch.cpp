// SPDX-License-Identifier: MIT
#include "Batch.h"

#include <sstream>

#include "JsonText.h"

std::string Batch::payload() const {
    return "{\"sequence\":" + std::to_string(sequence) + ",\"session\":" + quoted(session) +
           ",\"boot\":" + quoted(boot) + ",\"time\":" + quoted(timeText(moment.wall)) +
           ",\"monotonic\":" + std::to_string(moment.sinceBoot) +
           ",\"synchronised\":" + (moment.synchronised ? "true" : "false") +
           (corrected ? ",\"corrected\":true" : "") + ",\"changes\":" + changes + "}";
}

std::string Batch::line() const {
    std::ostringstream out;
    out << sequence << ' ' << session << ' ' << boot << ' ' << moment.wall << ' '
        << moment.sinceBoot << ' ' << (moment.synchronised ? 1 : 0) << ' ' << changes;
    return out.str();
}

std::optional<Batch> Batch::fromLine(const std::string& line) {
    std::istringstream in(line);
    Batch batch;
    int synchronised = 0;
    in >> batch.sequence >> batch.session >> batch.boot >> batch.moment.wall >>
        batch.moment.sinceBoot >> synchronised >> std::ws;
    std::getline(in, batch.changes);
    // The array's last bracket is the line's last byte.
    if (in.fail() || batch.changes.size() < 2 || batch.changes.front() != '[' ||
        batch.changes.back() != ']') {
        return std::nullopt;
    }
    batch.moment.synchronised = synchronised == 1;
    return batch;
}

void Batch::correct(const Moment& now, const std::string& currentBoot) {
    // Two starts that are not known need not be the same one.
    const bool sameBoot = boot == currentBoot && boot != UNKNOWN_BOOT;
    if (!moment.synchronised && now.synchronised && sameBoot) {
        moment.wall = now.wall - (now.sinceBoot - moment.sinceBoot);
        moment.synchronised = true;
        corrected = true;
    }
}
