// SPDX-License-Identifier: Apache-2.0

#include "startup/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

void OpenStandardDescriptors()
{
    // Each open() gets the lowest closed number, until the three are open. No
    // O_CLOEXEC, because children inherit the three.
    int fd = -1;
    do
        fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}
