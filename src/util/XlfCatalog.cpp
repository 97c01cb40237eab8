// SPDX-License-Identifier: MIT
#include "util/XlfCatalog.h"

#include "util/FileUtil.h"
#include "util/XmlFiler.h"

#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>

namespace Velmora::WorkflowCore {

XlfCatalog::XlfCatalog(const QString& path) : m_path(path) {}

QString XlfCatalog::Lookup(const QString& sourceFileKey, const QString& unitId)
{
    Load();
    const auto file = m_units.constFind(sourceFileKey);
    if (file == m_units.constEnd())
        return QString();
    return file->value(unitId);
}

void XlfCatalog::Load()
{
    if (m_loaded)
        return;
    m_loaded = true;

    // The catalogue itself is never translated: its targets are the translations.
    XmlFiler filer(false);
    if (!filer.Open(m_path) || !filer.GoToFirstChild())
        return;
    do
    {
        const QString key = SourceFileKey(filer.GetAttribute(QStringLiteral("original"), QString()));
        QHash<QString, QString> units;
        filer.PushPosition();
        if (filer.GoToFirstChild() && filer.GoToFirstChild())
        {
            do
            {
                const QString id = filer.GetAttribute(QStringLiteral("id"), QString());
                filer.PushPosition();
                // A unit that is there translates, even to nothing: an empty or missing target is
                // an empty translation, never a miss that would show the tr(...) text.
                QString target = QString::fromLatin1("");
                if (filer.GoToPath(QStringLiteral("target")))
                    target = filer.GetText();
                filer.PopPosition();
                if (target.isNull())
                    target = QString::fromLatin1("");
                units.insert(id, target);
            } while (filer.GoToNextSibling());
        }
        filer.PopPosition();
        m_units.insert(key, units);
    } while (filer.GoToNextSibling());
}

bool IsTranslatableText(const QString& text)
{
    // Blanks are every Unicode blank: a no-break or ideographic space counts like a space.
    static const QRegularExpression opening(QStringLiteral("^\\s*tr\\s*\\("),
                                            QRegularExpression::UseUnicodePropertiesOption);
    static const QRegularExpression closing(QStringLiteral("\\)\\s*$"),
                                            QRegularExpression::UseUnicodePropertiesOption);
    return opening.match(text).hasMatch() && closing.match(text).hasMatch();
}

QString TranslationUnitId(const QString& text)
{
    return DigestText(text);
}

QString FileNamePart(const QString& path)
{
    // Names written on another system carry its separator: either one ends a folder.
    const qsizetype cut = std::max(path.lastIndexOf(QLatin1Char('/')), path.lastIndexOf(QLatin1Char('\\')));
    return path.mid(cut + 1);
}

QString SourceFileKey(const QString& path)
{
    return FileNamePart(path).toLower();
}

QString FindTranslationFile(const QString& fileName, const QString& locale, const QString& searchPaths)
{
    if (fileName.isEmpty())
        return QString();

    QString name = FileNamePart(fileName);
    if (QFileInfo(name).suffix().isEmpty() && !name.contains(QLatin1Char('.')))
        name += QStringLiteral(".xlf");

    const QString localeName =
        locale.isEmpty() ? QLocale::system().name().replace(QLatin1Char('_'), QLatin1Char('-')) : locale;
    // The locale names a folder below each search path, never a path of its own: "de-DE", "fr",
    // "sr-Latn-RS", "en_US" are names; "..", "a/b" and anything else are not, and find nothing.
    static const QRegularExpression localeForm(QStringLiteral("^[A-Za-z]{1,8}([-_][A-Za-z0-9]{1,8})*$"));
    if (!localeForm.match(localeName).hasMatch())
        return QString();

    const QString relative = QStringLiteral("/%1/%2").arg(localeName, name);
    for (const QString& path : SplitSearchPaths(searchPaths))
    {
        const QFileInfo candidate(path + relative);
        if (IsRegularFile(candidate.filePath()))
            return candidate.absoluteFilePath();
    }
    const QFileInfo fallback(ApplicationFolder() + relative);
    if (IsRegularFile(fallback.filePath()))
        return fallback.absoluteFilePath();
    return QString();
}

} // namespace Velmora::WorkflowCore
