#include "XlfCatalog.h"

#include "FileUtil.h"
#include "XmlFiler.h"

#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

namespace Velmora::WorkflowCore {

XlfCatalog::XlfCatalog(const QString& path)
    : m_path(path)
{
}

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
    do {
        const QString key = SourceFileKey(filer.GetAttribute(QStringLiteral("original"), QString()));
        QHash<QString, QString> units;
        filer.PushPosition();
        if (filer.GoToFirstChild() && filer.GoToFirstChild()) {
            do {
                const QString id = filer.GetAttribute(QStringLiteral("id"), QString());
                filer.PushPosition();
                QString target;
                if (filer.GoToPath(QStringLiteral("target")))
                    target = filer.GetText();
                filer.PopPosition();
                units.insert(id, target);
            } while (filer.GoToNextSibling());
        }
        filer.PopPosition();
        m_units.insert(key, units);
    } while (filer.GoToNextSibling());
}

bool IsTranslatableText(const QString& text)
{
    static const QRegularExpression opening(QStringLiteral("^\\s*tr\\s*\\("));
    static const QRegularExpression closing(QStringLiteral("\\)\\s*$"));
    return opening.match(text).hasMatch() && closing.match(text).hasMatch();
}

QString TranslationUnitId(const QString& text)
{
    return DigestText(text);
}

QString SourceFileKey(const QString& path)
{
    return QFileInfo(path).fileName().toLower();
}

QString FindTranslationFile(const QString& fileName, const QString& locale, const QString& searchPaths)
{
    if (fileName.isEmpty())
        return QString();

    QString name = QFileInfo(fileName).fileName();
    if (QFileInfo(name).suffix().isEmpty() && !name.contains(QLatin1Char('.')))
        name += QStringLiteral(".xlf");

    const QString localeName =
        locale.isEmpty() ? QLocale::system().name().replace(QLatin1Char('_'), QLatin1Char('-')) : locale;

    const QString relative = QStringLiteral("/%1/%2").arg(localeName, name);
    for (const QString& path : SplitSearchPaths(searchPaths)) {
        const QFileInfo candidate(path + relative);
        if (candidate.isFile())
            return candidate.absoluteFilePath();
    }
    const QFileInfo fallback(ApplicationFolder() + relative);
    if (fallback.isFile())
        return fallback.absoluteFilePath();
    return QString();
}

} // namespace Velmora::WorkflowCore
