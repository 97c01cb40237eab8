// SPDX-License-Identifier: MIT
#pragma once

// The library's tests run in the private home that the hub's tests use too (XdgSandbox.h).

#include "XdgSandbox.h"

namespace VmWorkflowTest {

using TestEnvironment = TestSupport::XdgSandbox;

} // namespace VmWorkflowTest
