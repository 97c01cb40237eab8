// Feeds any bytes to the catalogue index reader, twice: as the index file itself (which the
// digests mostly turn away), and split at each "\xff" byte into blocks that are framed and digested as
// a scan frames them, so that the entries' own bytes are read, and the markup an entry leaves in
// the block after it is read as a record reads it. Nothing may crash, hang or leak;
// an index that loads is written anew by a scan that finds its files gone, and that index loads.

#include "manager/CatalogueIndex.h"

#include "FuzzSupport.h"

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

const QString kKey = QStringLiteral("/workflows\nlocale=en-US");

void Exercise(const QString& file)
{
    CatalogueIndex index(file, kKey, 2000000000000000000LL);
    const bool loaded = index.Load();
    Platform::FileIdentity identity;
    identity.exists = true;
    for (const char* path : {"/workflows/a.workflow", "", "/workflows/b.workflow"})
    {
        const ScannedFilePtr taken = index.Take(QString::fromLatin1(path), identity);
        Check(!taken || taken->result == StreamReadResult::Read ||
              taken->result == StreamReadResult::Unreadable);
        // Markup left in the index is read now, checked against its digest; damaged markup is
        // read from a workflow file that is not there, and reads as none.
        if (taken)
        {
            for (const WorkflowElementData& element : taken->data.elements)
                Check(element.settings.ToString().size() == element.settings.size());
        }
    }
    if (!loaded)
        return;
    // Every file the index knew is gone: the index is written anew, with none.
    Check(index.Finish());
    CatalogueIndex again(file, kKey, 2000000000000000000LL);
    Check(again.Load());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    qputenv("HOME", QFile::encodeName(Folder()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = Bytes(data, size);
    const QString file = Folder() + QStringLiteral("/catalogue.index");
    Check(PutFile(file, bytes));
    Exercise(file);
    Check(PutFile(file, CatalogueIndex::Framed(kKey, 1000, bytes.split('\xff'))));
    Exercise(file);
    return 0;
}
