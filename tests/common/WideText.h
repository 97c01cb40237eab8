// SPDX-License-Identifier: MIT
#pragma once

// The tests read and pass texts of the exported interface through the library's own conversions.

#include <VmWorkflowCore/WideText.h>

#include <functional>

namespace VmWorkflowTest {

using Velmora::WorkflowCore::WideChar;
using Wide = Velmora::WorkflowCore::WideText;

inline QString ReadText(const std::function<int(WideChar*, int)>& getter)
{
    return Velmora::WorkflowCore::ReadWideText(getter);
}

} // namespace VmWorkflowTest
