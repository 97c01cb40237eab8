// SPDX-License-Identifier: MIT
#pragma once

// The tool reads and passes texts of the exported interface through the library's conversions.

#include <VmWorkflowCore/WideText.h>
#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowPrivate.h>
#include <VmWorkflowCore/WorkflowQueryKeys.h>

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

// Whether the products the workflow requires are installed here: the catalogue's own
// "IsExecutable=true" filter, asked about this one workflow rather than run over all of them.
inline bool RunsHere(Velmora::WorkflowCore::Workflow* workflow)
{
    using namespace Velmora::WorkflowCore;
    return WorkflowPrivate::MatchesFilter(workflow,
                                          QLatin1String(QueryKeys::IsExecutable) + QStringLiteral("=true"));
}

} // namespace VmWorkflowTool
