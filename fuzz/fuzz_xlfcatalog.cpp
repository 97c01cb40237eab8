// Feeds any bytes to the translation catalogue as an XLIFF file. Besides crashes, hangs and
// sanitizer reports it aborts when a unit the file holds does not translate, or when looking up
// is not repeatable.

#include "util/XlfCatalog.h"
#include "util/XmlFiler.h"

#include "FuzzSupport.h"

#include <QDomDocument>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = Bytes(data, size);
    const QString path = Folder() + QStringLiteral("/in.xlf");
    Check(PutFile(path, bytes));

    XlfCatalog catalog(path);
    catalog.Load();
    Check(catalog.IsLoaded());

    QDomDocument document;
    if (!document.setContent(bytes))
        return 0;
    // The catalogue reads its file as every XML file is read here, without the characters no XML
    // file may hold (an encoding such as UTF-7 decodes into half a surrogate pair): its keys and
    // ids are the attributes read so.
    const auto asRead = [](const QDomElement& element, const QString& name) {
        QString value = element.attribute(name);
        RemoveNonXmlCharacters(value);
        return value;
    };
    // For each file key, the units of the last file element with it: a later one replaces all.
    QHash<QString, QDomElement> files;
    for (QDomElement file = document.documentElement().firstChildElement(); !file.isNull();
         file = file.nextSiblingElement())
        files.insert(SourceFileKey(asRead(file, QStringLiteral("original"))), file);
    int units = 0;
    for (auto it = files.cbegin(); it != files.cend() && units < 2000; ++it)
    {
        const QDomElement body = it.value().firstChildElement();
        for (QDomElement unit = body.firstChildElement(); !unit.isNull() && units < 2000;
             unit = unit.nextSiblingElement(), ++units)
        {
            const QString id = asRead(unit, QStringLiteral("id"));
            const QString translation = catalog.Lookup(it.key(), id);
            // A unit that is there translates, even to nothing.
            Check(!translation.isNull());
            Check(catalog.Lookup(it.key(), id) == translation);
        }
    }
    const QString text = QString::fromUtf8(bytes.left(64));
    if (IsTranslatableText(text))
        Check(!TranslationUnitId(text).isEmpty());
    return 0;
}
