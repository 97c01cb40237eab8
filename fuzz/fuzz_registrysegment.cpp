// Feeds any bytes to the executing-workflow registry's segment parser, as a whole 32,768-byte
// segment (zero-filled after the input) and as a short one. What it parses must serialise into a
// segment that parses to the same entries.

#include "execution/ExecutingRegistry.h"

#include "FuzzSupport.h"

#include <algorithm>
#include <cstring>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

// Element by element: comparing two empty lists with == hands a null pointer to memcmp in this Qt.
bool SameIds(const QList<int>& a, const QList<int>& b)
{
    return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin());
}

bool Same(const ExecutingWorkflowRecord& a, const ExecutingWorkflowRecord& b)
{
    return a.WorkflowId == b.WorkflowId && a.WorkflowId.isNull() == b.WorkflowId.isNull() &&
           a.SourceFile == b.SourceFile && a.HostProcessId == b.HostProcessId &&
           a.LauncherProcessId == b.LauncherProcessId && a.ExitStatus == b.ExitStatus &&
           a.ErrorMessage == b.ErrorMessage && a.TargetProductProcessId == b.TargetProductProcessId &&
           a.WorkflowHandle == b.WorkflowHandle && SameIds(a.ExecutingApplications, b.ExecutingApplications);
}

void RoundTrip(const QList<ExecutingWorkflowRecord>& entries)
{
    const QByteArray image = ExecutingRegistry::SerializeEntries(entries);
    // Parsed from one segment, the entries always fit in one.
    Check(image.size() == ExecutingRegistry::SegmentSize);
    const QList<ExecutingWorkflowRecord> again =
        ExecutingRegistry::ParseEntries(image.constData(), static_cast<int>(image.size()));
    Check(again.size() == entries.size());
    for (qsizetype i = 0; i < entries.size(); ++i)
        Check(Same(again.at(i), entries.at(i)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The segment as another process may have left it.
    static QByteArray segment(ExecutingRegistry::SegmentSize, '\0');
    segment.fill('\0');
    const size_t used = std::min(size, size_t(ExecutingRegistry::SegmentSize));
    std::memcpy(segment.data(), data, used);
    RoundTrip(ExecutingRegistry::ParseEntries(segment.constData(), ExecutingRegistry::SegmentSize));

    // Exactly the input's bytes: a parse never reads past the end it is given.
    std::vector<char> exact(data, data + used);
    const QList<ExecutingWorkflowRecord> entries =
        ExecutingRegistry::ParseEntries(exact.data(), static_cast<int>(exact.size()));
    RoundTrip(entries);
    // A shorter view of the same bytes never yields more entries.
    if (used > 0)
        Check(ExecutingRegistry::ParseEntries(exact.data(), static_cast<int>(used / 2)).size() <=
              entries.size());
    return 0;
}
