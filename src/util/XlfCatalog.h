// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QString>

// Translations of tr(...) texts from one XLIFF file, read on first use and kept.
namespace Velmora::WorkflowCore {

class XlfCatalog
{
public:
    explicit XlfCatalog(const QString& path);

    const QString& GetPath() const { return m_path; }
    bool IsLoaded() const { return m_loaded; }

    // The translation of the unit with that id in the file whose name-part key is given
    // (lower-cased file name without folders); a null string when there is none.
    QString Lookup(const QString& sourceFileKey, const QString& unitId);

    // Reads the file once; later calls do nothing, even when the file has changed.
    void Load();

private:
    QString m_path;
    bool m_loaded = false;
    QHash<QString, QHash<QString, QString>> m_units;
};

// Whether the text has the shape tr(...), blanks allowed around it.
bool IsTranslatableText(const QString& text);

// The unit id of a translatable text as written: the digest of the whole text.
QString TranslationUnitId(const QString& text);

// The part of a path after its last "/" or "\\", whichever separator it was written with.
QString FileNamePart(const QString& path);

// The lower-cased file-name part of a path: what units are grouped by.
QString SourceFileKey(const QString& path);

// The ".xlf" file for the locale: <search path>/<locale>/<name> for each ";"-separated search
// path in order, then <application folder>/<locale>/<name>; an empty locale means the system's.
// Empty when none exists.
QString FindTranslationFile(const QString& fileName, const QString& locale, const QString& searchPaths);

} // namespace Velmora::WorkflowCore
