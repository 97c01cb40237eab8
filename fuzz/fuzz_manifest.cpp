// Feeds any bytes to the hub's manifest reader as an application manifest: an accepted manifest
// names an application and an absolute, clean program path.

#include "ManifestCatalog.h"

#include "FuzzSupport.h"

#include <QDir>

using namespace Velmora::OstrelAdapter;
using namespace VmWorkflowFuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = Folder() + QStringLiteral("/manifest.xml");
    Check(PutFile(path, Bytes(data, size)));
    const ApplicationInfo info = ManifestCatalog::ReadManifest(path);
    const ApplicationInfo again = ManifestCatalog::ReadManifest(path);
    Check(info.IsValid() == again.IsValid());
    if (!info.IsValid())
        return 0;
    Check(!info.GetId().trimmed().isEmpty());
    Check(info.GetId() == again.GetId());
    Check(QDir::isAbsolutePath(info.GetExecutable()));
    Check(QDir::cleanPath(info.GetExecutable()) == info.GetExecutable());
    return 0;
}
