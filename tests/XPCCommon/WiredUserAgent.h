#pragma once

#include <memory>

#include "support/FakeXPCEnd.h"

// The user agent service's interface for the fake transport: clients and listeners that use it are wired to
// each other.
std::shared_ptr<const cmn::XPCInterface> CreateWiredUserAgentInterface();
