// SPDX-License-Identifier: MIT
#include "StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

void fillStandardDescriptors() {
    // In ascending order: open() takes the lowest free number.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) == -1) {
            // The wrong way round: a program still learns that its output went nowhere.
            ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}
