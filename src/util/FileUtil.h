// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QDir>
#include <QHash>
#include <QString>
#include <QStringList>

// Small helpers that several subsystems share: listing files, the well-known folders, the
// search-path split, parenthesis matching and the digest behind translation unit ids.
namespace Velmora::WorkflowCore {

// Lists the files (and, when the filter asks for them, folders) below path whose names match one
// of the "|"-separated patterns, as absolute cleaned paths in the given sort order. A path naming a
// file lists that file alone; a path that does not exist gives an empty list. With recursive set,
// each subfolder comes before what is found inside it.
QStringList FindFiles(const QString& path, const QString& patterns, QDir::Filters filters = QDir::NoFilter,
                      QDir::SortFlags sort = QDir::NoSort, bool recursive = false);

// What QDir::cleanPath(path) gives, the path itself when it is clean already (no doubled, "." or
// ".." part, no trailing or native separator): the catalogue cleans the path of every record it
// makes, and nearly all of them are clean.
QString CleanPath(const QString& path);

// Whether path names a regular file (a link is followed). Readers open nothing else: a pipe or a
// device would block the read or never end.
bool IsRegularFile(const QString& path);

// The running application's folder, absolute and cleaned.
QString ApplicationFolder();

// The user's roaming application-data folder, cleaned; empty when the platform gives none.
QString ApplicationDataFolder();

// Creates folder with every missing parent; the folders it makes are private to the user (mode
// 0700 where the platform has modes). True when the folder exists afterwards.
bool MakePrivateFolders(const QString& folder);

// The position of the ")" that closes the "(" at position, or -1 when position holds no "(" or
// the text ends before the parentheses balance.
int MatchingParenthesis(const QString& text, int position);

// Lower-case hexadecimal MD5 of the text's UTF-8 bytes: 32 characters.
QString DigestText(const QString& text);

// A date written in a file: ISO 8601 without a zone, always meaning UTC. The text is read as UTC
// from the start (a UTC time never falls into a local clock change) and handed back in local
// time; an empty or malformed text gives a null date-time. A text that carries a zone is taken
// as the UTC time its digits spell.
QDateTime DateFromUtcText(const QString& text);

// The local time of a date-time. Each conversion asks the system whether its time zone changed,
// which costs file-system calls; while a LocalTimeConversions lives on the calling thread, the
// conversions made there are kept and a date seen again costs a table lookup. A scan of a
// catalogue holds one: within one scan the zone is taken as fixed.
QDateTime ToLocalTime(const QDateTime& date);
class LocalTimeConversions
{
public:
    LocalTimeConversions();
    ~LocalTimeConversions();
    LocalTimeConversions(const LocalTimeConversions&) = delete;
    LocalTimeConversions& operator=(const LocalTimeConversions&) = delete;

    // DateFromUtcText through the table of the calling thread's conversions, when it has one.
    static QDateTime DateOfText(const QString& text);

private:
    friend QDateTime ToLocalTime(const QDateTime& date);
    QHash<qint64, QDateTime> m_known;
    QHash<QString, QDateTime> m_byText;
    LocalTimeConversions* m_outer;
};
// The text of a date for a file: UTC, ISO 8601 without a zone; a local time is converted, a value
// in UTC or with an offset is written as it stands; a null date-time gives an empty text.
QString UtcTextFromDate(const QDateTime& date);

// A ";"-separated list of folders, empty pieces dropped, order and repetitions kept.
QStringList SplitSearchPaths(const QString& searchPaths);

} // namespace Velmora::WorkflowCore
