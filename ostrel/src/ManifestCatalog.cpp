// SPDX-License-Identifier: MIT
#include "ManifestCatalog.h"

#include <OstrelAdapter/ApplicationManager.h>

#include <QDateTime>
#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcManifests, "velmora.ostrel.manifests", QtWarningMsg)

namespace {

// A change within this window of the last read could share its clock tick with that read, so
// such a catalogue is read again rather than trusted.
const qint64 kRacyWindowMs = 2000;

} // namespace

ManifestCatalog::Stamp ManifestCatalog::StampOf(const QString& path)
{
    Stamp stamp;
    stamp.path = path;
    const QFileInfo info(path);
    stamp.exists = info.exists();
    if (stamp.exists)
    {
        stamp.modifiedMs = info.lastModified().toMSecsSinceEpoch();
        stamp.size = info.isDir() ? 0 : info.size();
    }
    return stamp;
}

bool ManifestCatalog::Stale() const
{
    if (!m_loaded)
        return true;
    for (const Stamp& stamp : m_stamps)
    {
        if (!(StampOf(stamp.path) == stamp))
            return true;
        if (stamp.exists && stamp.modifiedMs >= m_readAtMs - kRacyWindowMs)
            return true;
    }
    return false;
}

const QList<ApplicationInfo>& ManifestCatalog::Applications()
{
    if (m_loaded && m_sinceCheck.isValid() && !m_sinceCheck.hasExpired(kCheckIntervalMs))
        return m_applications;
    m_sinceCheck.start();
    // The folder list itself follows the environment, which a caller may change.
    QStringList folders = ApplicationManager::ManifestFolders();
    bool sameFolders = m_loaded;
    if (sameFolders)
    {
        QStringList known;
        for (const Stamp& stamp : std::as_const(m_stamps))
        {
            if (stamp.path.endsWith(QLatin1Char('/')))
                known << stamp.path.chopped(1);
        }
        sameFolders = known == folders;
    }
    if (!sameFolders || Stale())
        Reload();
    return m_applications;
}

ApplicationInfo ManifestCatalog::ReadManifest(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return ApplicationInfo();
    QDomDocument document;
    if (!document.setContent(&file))
    {
        qCDebug(lcManifests, "not a manifest: %s", qUtf8Printable(path));
        return ApplicationInfo();
    }
    const QDomElement root = document.documentElement();
    const QString id = root.attribute(QStringLiteral("Id")).trimmed();
    QString executable = root.attribute(QStringLiteral("Executable")).trimmed();
    if (id.isEmpty() || executable.isEmpty())
    {
        qCDebug(lcManifests, "manifest without id or program: %s", qUtf8Printable(path));
        return ApplicationInfo();
    }
    if (QDir::isRelativePath(executable))
        executable = QFileInfo(path).absoluteDir().absoluteFilePath(executable);
    bool ok = false;
    qint64 infoId = root.attribute(QStringLiteral("InfoId")).toLongLong(&ok);
    if (!ok)
        infoId = 0;
    return ApplicationInfo(id, root.attribute(QStringLiteral("Name")),
                           root.attribute(QStringLiteral("Version")), QDir::cleanPath(executable), infoId);
}

void ManifestCatalog::Reload()
{
    m_readAtMs = QDateTime::currentMSecsSinceEpoch();
    m_stamps.clear();
    m_applications.clear();
    QSet<QString> seenIds; // id in lower case and version
    for (const QString& folder : ApplicationManager::ManifestFolders())
    {
        // Folders end in "/" among the stamps so that they are told from manifest files.
        Stamp folderStamp = StampOf(folder);
        folderStamp.path = folder + QLatin1Char('/');
        m_stamps << folderStamp;
        if (!folderStamp.exists)
            continue;
        const QFileInfoList files =
            QDir(folder).entryInfoList({QStringLiteral("*.xml")}, QDir::Files, QDir::Name);
        for (const QFileInfo& file : files)
        {
            m_stamps << StampOf(file.absoluteFilePath());
            const ApplicationInfo info = ReadManifest(file.absoluteFilePath());
            if (!info.IsValid())
                continue;
            // Several versions of one application are installed side by side and a launcher picks
            // among them; only the same version of the same id met again is a duplicate.
            const QString key = info.GetId().toLower() + QLatin1Char('\n') + info.GetVersion().trimmed();
            if (seenIds.contains(key))
            {
                qCDebug(lcManifests, "duplicate application %s %s in %s", qUtf8Printable(info.GetId()),
                        qUtf8Printable(info.GetVersion()), qUtf8Printable(file.absoluteFilePath()));
                continue;
            }
            seenIds.insert(key);
            m_applications << info;
        }
    }
    m_loaded = true;
}

} // namespace Velmora::OstrelAdapter
