#pragma once

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QString>

namespace Velmora::OstrelAdapter {

class OSTRELADAPTER_EXPORT OstrelAdapterUtility
{
public:
    // Whether an application of version actual satisfies a request for version wanted: an empty
    // wanted accepts any; otherwise every dotted component of wanted must equal actual's at the
    // same place (2016 accepts 2016.1; 2016.1 does not accept 2016). Numbers compare as numbers,
    // anything else as text.
    static bool VersionCompare(const QString& wanted, const QString& actual);

    // One sentence for the user that names the application; empty for NoError.
    static QString FormatApplicationStarupErrorMessage(const QString& applicationName,
                                                       Application::StartupError error);
};

} // namespace Velmora::OstrelAdapter
