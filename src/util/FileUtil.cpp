// SPDX-License-Identifier: MIT
#include "util/FileUtil.h"

#include "platform/Platform.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QTimeZone>

namespace Velmora::WorkflowCore {

QStringList FindFiles(const QString& path, const QString& patterns, QDir::Filters filters,
                      QDir::SortFlags sort, bool recursive)
{
    QStringList found;
    if (path.isEmpty())
        return found;

    QString folder = path;
    QStringList nameFilters;
    const QFileInfo info(path);
    if (info.exists() && !info.isDir())
    {
        folder = info.absolutePath();
        nameFilters << info.fileName();
    }
    else
    {
        if (!info.isDir())
            return found;
        nameFilters =
            (patterns.isEmpty() ? QStringLiteral("*") : patterns).split(QLatin1Char('|'), Qt::SkipEmptyParts);
    }

    const QDir::Filters given = filters == QDir::NoFilter ? QDir::Filters(QDir::Files) : filters;
    QDir::Filters listing = given | QDir::NoDotAndDotDot;
    if (recursive)
        listing &= ~(QDir::Dirs | QDir::AllDirs);

    const QDir dir(folder);
    const QFileInfoList entries = dir.entryInfoList(nameFilters, listing, sort);
    found.reserve(entries.size());
    for (const QFileInfo& entry : entries)
        found << QDir::cleanPath(entry.absoluteFilePath());

    if (recursive)
    {
        QDir::Filters folderFilter = given;
        folderFilter &= ~QDir::Files;
        folderFilter |= QDir::AllDirs | QDir::NoDotAndDotDot;
        const bool wantsFolders = given.testFlag(QDir::Dirs) || given.testFlag(QDir::AllDirs);
        const QFileInfoList subfolders = dir.entryInfoList(QStringList(), folderFilter, sort);
        for (const QFileInfo& sub : subfolders)
        {
            // A symbolic link back up the tree would otherwise be followed for ever.
            if (sub.isSymLink())
                continue;
            const QString subPath = QDir::cleanPath(sub.absoluteFilePath());
            if (wantsFolders)
                found << subPath;
            // The same name filters below: for a file path that is the file's own name alone.
            found << FindFiles(subPath, nameFilters.join(QLatin1Char('|')), filters, sort, true);
        }
    }
    return found;
}

QString CleanPath(const QString& path)
{
    if (path.isEmpty())
        return path;
    const qsizetype size = path.size();
    // Where the current part began.
    qsizetype part = 0;
    for (qsizetype i = 0; i <= size; ++i)
    {
        const char16_t c = i < size ? path.at(i).unicode() : u'/';
        if (c == u'\\')
            return QDir::cleanPath(path);
        if (c != u'/')
            continue;
        const qsizetype length = i - part;
        const bool dots = (length == 1 && path.at(part) == u'.') ||
                          (length == 2 && path.at(part) == u'.' && path.at(part + 1) == u'.');
        // An empty part is a doubled or trailing separator, or the leading one of an absolute
        // path, which is the only one that stays.
        if (dots || (length == 0 && (part > 0 || i == size)))
            return size == 1 && path.at(0) == u'/' ? path : QDir::cleanPath(path);
        part = i + 1;
    }
    return path;
}

bool IsRegularFile(const QString& path)
{
    return !path.isEmpty() && QFileInfo(path).isFile();
}

QString ApplicationFolder()
{
    // A host without an application object still has a folder; Qt would only warn and say none.
    const QString folder =
        QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : Platform::ExecutableFolder();
    return folder.isEmpty() ? QString() : QDir::cleanPath(QDir(folder).absolutePath());
}

QString ApplicationDataFolder()
{
    const QString folder = Platform::ApplicationDataFolder();
    return folder.isEmpty() ? QString() : QDir::cleanPath(folder);
}

bool MakePrivateFolders(const QString& folder)
{
    if (folder.isEmpty())
        return false;
    const QFileInfo info(folder);
    if (info.isDir())
        return true;
    if (info.exists() || info.isSymLink())
        return false;
    const QString parent = info.absolutePath();
    if (parent != info.absoluteFilePath() && !MakePrivateFolders(parent))
        return false;
    if (!QDir().mkdir(folder) && !QFileInfo(folder).isDir())
        return false;
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return true;
}

int MatchingParenthesis(const QString& text, int position)
{
    if (position < 0 || position >= text.size() || text.at(position) != QLatin1Char('('))
        return -1;
    int depth = 0;
    for (int i = position; i < text.size(); ++i)
    {
        const QChar c = text.at(i);
        if (c == QLatin1Char('('))
            ++depth;
        else if (c == QLatin1Char(')') && --depth == 0)
            return i;
    }
    return -1;
}

QString DigestText(const QString& text)
{
    return QString::fromLatin1(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Md5).toHex());
}

namespace {

QDateTime ReadDateFromUtcText(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return QDateTime();
    QDateTime value = QDateTime::fromString(trimmed, Qt::ISODate);
    if (value.timeSpec() == Qt::LocalTime)
        value = QDateTime::fromString(trimmed + QLatin1Char('Z'), Qt::ISODate);
    else if (value.isValid())
        value = QDateTime(value.date(), value.time(), QTimeZone::utc());
    return value.isValid() ? ToLocalTime(value) : QDateTime();
}

} // namespace

QDateTime DateFromUtcText(const QString& text)
{
    // Reading the text makes a local time on the way, which asks the system about its zone:
    // within a scan, a text read before is answered from the table.
    return LocalTimeConversions::DateOfText(text);
}

namespace {

thread_local LocalTimeConversions* t_conversions = nullptr;
// Enough for the distinct dates of a large catalogue; past it the table starts afresh.
constexpr qsizetype kMostKnownConversions = 65536;

} // namespace

LocalTimeConversions::LocalTimeConversions() : m_outer(t_conversions)
{
    t_conversions = this;
}

LocalTimeConversions::~LocalTimeConversions()
{
    t_conversions = m_outer;
}

QDateTime LocalTimeConversions::DateOfText(const QString& text)
{
    if (!t_conversions)
        return ReadDateFromUtcText(text);
    QHash<QString, QDateTime>& known = t_conversions->m_byText;
    const auto found = known.constFind(text);
    if (found != known.constEnd())
        return *found;
    if (known.size() >= kMostKnownConversions)
        known.clear();
    const QDateTime date = ReadDateFromUtcText(text);
    known.insert(text, date);
    return date;
}

QDateTime ToLocalTime(const QDateTime& date)
{
    if (!t_conversions || !date.isValid())
        return date.toLocalTime();
    const qint64 instant = date.toMSecsSinceEpoch();
    QHash<qint64, QDateTime>& known = t_conversions->m_known;
    const auto found = known.constFind(instant);
    if (found != known.constEnd())
        return *found;
    if (known.size() >= kMostKnownConversions)
        known.clear();
    const QDateTime local = date.toLocalTime();
    known.insert(instant, local);
    return local;
}

QString UtcTextFromDate(const QDateTime& date)
{
    if (!date.isValid())
        return QString();
    const QDateTime written = date.timeSpec() == Qt::LocalTime ? date.toUTC() : date;
    return written.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
}

QStringList SplitSearchPaths(const QString& searchPaths)
{
    return searchPaths.split(QLatin1Char(';'), Qt::SkipEmptyParts);
}

} // namespace Velmora::WorkflowCore
