// SPDX-License-Identifier: Apache-2.0

#include "startup/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

void OpenStandardDescriptors()
{
    // The lowest closed descriptor each time; beyond the three there is none.
    // Children inherit what stands in for a stream, so it stays open on exec.
    int fd = -1;
    do
        fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}
