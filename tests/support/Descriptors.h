#pragma once

// This process's file descriptors, for tests that check that nothing is left open.

#include <sys/resource.h>

#include <cstddef>

namespace testsupport {

// How many descriptors the process has open.
std::size_t openDescriptorCount();

// Raises the soft limit of open descriptors to `wanted` (at most the hard limit), for tests that open many.
void raiseDescriptorLimit(rlim_t wanted);

}
