#pragma once

#include <string>

// What one answer with 10,000 records costs both ends in memory, beyond what they had before it and at their
// peak: a service and a client of each kind as processes of their own.
namespace memory {

// Prints the figures as JSON.
int Compare();

// What such a client runs: asks when it is told to on its input.
bool IsClient(const std::string& argument);
int RunClient(const std::string& argument);

}  // namespace memory
