// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstddef>

namespace Velmora::WorkflowCore {

class Workflow;

// Usage reports to the analytics library. Each report is one waypoint with one state and its
// attributes, sent only while the process-wide gate is open. The gate starts closed and nothing
// in the library opens it, so a product process never loads the analytics library. Reporting
// never fails its caller and never changes the outcome of what it reports.

// A workflow was launched from launchPoint (a WorkflowLaunchPoint; other values read "Unknown").
void ReportWorkflowExecution(Workflow* workflow, int launchPoint);
// A workflow was saved as a new one, from the template templateId; wasModified is the record's
// unsaved-changes flag before that save.
void ReportWorkflowCreation(const QString& templateId, bool wasModified);
// A workflow was saved in place.
void ReportWorkflowModification(const QString& id, const QString& templateId);

// The label reported for a launch point.
QString LaunchPointLabel(int launchPoint);

// Bytes for a zero-terminated copy of a text of length code units; a computation that would
// overflow gives the largest size, so that the allocation fails instead of coming out short.
std::size_t WideBufferBytes(std::size_t length);

namespace AnalyticsTesting {
// Opens or closes the gate. For the library's own tests only: hidden from the shared library's
// interface, reachable only by linking the library's objects statically.
void SetGateOpen(bool open);
// Whether the analytics library has been bound in this process.
bool IsBound();
} // namespace AnalyticsTesting

} // namespace Velmora::WorkflowCore
