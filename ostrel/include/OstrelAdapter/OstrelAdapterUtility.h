// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/OstrelAdapterExport.h>

#include <QString>

namespace Velmora::OstrelAdapter {

/// Rules of the hub that callers share: version matching and start-up error texts. Only static members.
class OSTRELADAPTER_EXPORT OstrelAdapterUtility
{
public:
    /// Whether an application of version actual satisfies a request for version wanted: an empty
    /// wanted accepts any; otherwise every dotted component of wanted must equal actual's at the
    /// same place (2016 accepts 2016.1; 2016.1 does not accept 2016). Components are separated by
    /// "." (empty ones are skipped) and trimmed; two numbers compare as numbers (2016.01 equals
    /// 2016.1), anything else as text ignoring case (2016.beta equals 2016.BETA.2).
    static bool VersionCompare(const QString& wanted, const QString& actual);

    /// One sentence for the user that names the application; empty for NoError.
    static QString FormatApplicationStarupErrorMessage(const QString& applicationName,
                                                       Application::StartupError error);
};

} // namespace Velmora::OstrelAdapter
