// Feeds any bytes to the reader for the common shape of a workflow file and to the general
// streaming reader. The first may decline a file; when it reads one, the general reader must read
// it too and give the very same plain data, text for text, null texts included.

#include "util/WorkflowFileScanner.h"

#include "FuzzSupport.h"

#include <array>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

bool Same(const QString& a, const QString& b)
{
    return a == b && a.isNull() == b.isNull();
}

bool Same(const CompactText& a, const CompactText& b)
{
    return a == b && a.isNull() == b.isNull();
}

bool Same(const WorkflowElementData& a, const WorkflowElementData& b)
{
    if (!Same(a.tag, b.tag) || a.present != b.present || a.hasIntroduction != b.hasIntroduction ||
        !Same(a.introduction, b.introduction) || a.hasSettings != b.hasSettings ||
        !Same(a.settings, b.settings))
        return false;
    for (size_t i = 0; i < a.values.size(); ++i)
    {
        if (!Same(a.values[i], b.values[i]))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = Bytes(data, size);
    for (const QString& firstTag : {QString(), QStringLiteral("Workflow")})
    {
        WorkflowFileData scanned;
        if (!ScanCommonWorkflowFile(bytes, firstTag, scanned))
        {
            Check(scanned.elements.isEmpty() && !scanned.hasXlfFile && scanned.xlfFile.isNull());
            continue;
        }
        WorkflowFileData general;
        Check(ParseWorkflowFileWithReader(bytes, firstTag, general) == StreamReadResult::Read);
        Check(scanned.hasXlfFile == general.hasXlfFile);
        Check(Same(scanned.xlfFile, general.xlfFile));
        Check(scanned.elements.size() == general.elements.size());
        for (qsizetype i = 0; i < scanned.elements.size(); ++i)
            Check(Same(scanned.elements.at(i), general.elements.at(i)));
    }
    return 0;
}
