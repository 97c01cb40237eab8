// SPDX-License-Identifier: MIT
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include <QStringList>

namespace Velmora::OstrelAdapter {

bool OstrelAdapterUtility::VersionCompare(const QString& wanted, const QString& actual)
{
    const QStringList want = wanted.trimmed().split(QLatin1Char('.'), Qt::SkipEmptyParts);
    const QStringList have = actual.trimmed().split(QLatin1Char('.'), Qt::SkipEmptyParts);
    if (want.size() > have.size())
        return false;
    for (int i = 0; i < want.size(); ++i)
    {
        bool wantNumber = false;
        bool haveNumber = false;
        const qulonglong w = want.at(i).trimmed().toULongLong(&wantNumber);
        const qulonglong h = have.at(i).trimmed().toULongLong(&haveNumber);
        if (wantNumber && haveNumber)
        {
            if (w != h)
                return false;
        }
        else if (want.at(i).trimmed().compare(have.at(i).trimmed(), Qt::CaseInsensitive) != 0)
        {
            return false;
        }
    }
    return true;
}

QString OstrelAdapterUtility::FormatApplicationStarupErrorMessage(const QString& applicationName,
                                                                  Application::StartupError error)
{
    switch (error)
    {
    case Application::NoError:
        return QString();
    case Application::ApplicationNotFound:
        return QStringLiteral("%1 could not be started because it is not installed on this computer.")
            .arg(applicationName);
    case Application::ExecutableMissing:
        return QStringLiteral(
                   "%1 could not be started because its program file is missing; installing %1 again "
                   "may repair it.")
            .arg(applicationName);
    case Application::CouldNotStart:
        return QStringLiteral("%1 could not be started: the system refused to run its program.")
            .arg(applicationName);
    }
    return QStringLiteral("%1 could not be started.").arg(applicationName);
}

} // namespace Velmora::OstrelAdapter
