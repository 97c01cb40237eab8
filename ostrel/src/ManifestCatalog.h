// SPDX-License-Identifier: MIT
#pragma once

#include <OstrelAdapter/ApplicationInfo.h>

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QStringList>

namespace Velmora::OstrelAdapter {

// The installed applications, read from manifest files and kept until a manifest folder or file
// changes. The folders and files are looked at again at most every kCheckIntervalMs, so a list
// asking about thousands of rows costs no file-system calls at all; unchanged manifests are never
// read again.
class ManifestCatalog
{
public:
    static constexpr qint64 kCheckIntervalMs = 500;

    const QList<ApplicationInfo>& Applications();

    // Parses one manifest; an invalid info when it is not one.
    static ApplicationInfo ReadManifest(const QString& path);

private:
    struct Stamp
    {
        QString path;
        bool exists = false;
        qint64 modifiedMs = 0;
        qint64 size = 0;
        bool operator==(const Stamp& other) const
        {
            return path == other.path && exists == other.exists && modifiedMs == other.modifiedMs &&
                   size == other.size;
        }
    };
    static Stamp StampOf(const QString& path);
    bool Stale() const;
    void Reload();

    bool m_loaded = false;
    QElapsedTimer m_sinceCheck; // how long the catalogue has been trusted without looking
    qint64 m_readAtMs = 0;
    QList<Stamp> m_stamps;
    QList<ApplicationInfo> m_applications;
};

} // namespace Velmora::OstrelAdapter
