// SPDX-License-Identifier: MIT
//
// Only in the build that counts which lines run. The counts are written when a program ends by
// exit(). The service ends by _Exit(), which is replaced here: it writes the counts first.

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>

extern "C" void __gcov_dump();  // NOLINT(*-reserved-identifier)

namespace coverage {

/// Each program and each shared library has counts of its own, and a copy of this file. All copies
/// share this list.
struct Dumps {
    std::array<void (*)(), 8> all{};
    std::atomic<std::size_t> count{0};
};
[[gnu::visibility("default")]] inline Dumps dumps;  // NOLINT(*-avoid-non-const-global-variables)

namespace {

[[maybe_unused]] const bool IS_LISTED = [] {
    dumps.all.at(dumps.count++) = __gcov_dump;
    return true;
}();

}  // namespace

}  // namespace coverage

extern "C" [[noreturn, gnu::visibility("default")]] void _Exit(int status) noexcept {
    for (std::size_t i = 0; i < coverage::dumps.count; ++i) {
        coverage::dumps.all.at(i)();
    }
    for (;;) {
        ::syscall(SYS_exit_group, status);
    }
}
