// SPDX-License-Identifier: MIT
#pragma once

// The tool reads and passes texts of the exported interface through the library's conversions.

#include <VmWorkflowCore/WideText.h>
#include <VmWorkflowCore/Workflow.h>

namespace VmWorkflowTool {

using Velmora::WorkflowCore::WideChar;
using Wide = Velmora::WorkflowCore::WideText;

template <typename Getter> QString ReadText(Getter getter)
{
    return Velmora::WorkflowCore::ReadWideText(getter);
}

inline QString FromWide(const WideChar* text)
{
    return Velmora::WorkflowCore::FromWideText(text);
}

} // namespace VmWorkflowTool
