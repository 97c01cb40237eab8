// Feeds any bytes to the product catalogue as "Products.xml": every product element the file
// holds is found by its id (the last one of an id wins), and lookups keep the asked version.

#include "manager/ProductCatalog.h"

#include "FuzzSupport.h"

#include <QDomDocument>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = Bytes(data, size);
    const QString path = Folder() + QStringLiteral("/Products.xml");
    Check(PutFile(path, bytes));

    ProductCatalog catalog;
    if (!catalog.LoadFile(path))
    {
        Check(catalog.Count() == 0);
        return 0;
    }
    QDomDocument document;
    Check(document.setContent(bytes));
    QHash<QString, QDomElement> last;
    for (QDomElement product = document.documentElement().firstChildElement(); !product.isNull();
         product = product.nextSiblingElement())
        last.insert(product.attribute(QStringLiteral("Id")).toLower(), product);
    Check(catalog.Count() == last.size());

    QStringList ids;
    for (auto it = last.cbegin(); it != last.cend(); ++it)
    {
        const QString& id = it.key();
        if (id.contains(QLatin1Char(':')))
            continue; // a version separator: such an id can never be asked for
        const ProductRecord record = catalog.Lookup(id + QStringLiteral(":2016.1"));
        Check(record.Name == it.value().attribute(QStringLiteral("Name")));
        Check(record.OstrelName == it.value().attribute(QStringLiteral("OstrelName")));
        Check(record.Version == QLatin1String("2016.1"));
        Check(catalog.DisplayName(id) == record.Name);
        if (!id.contains(QLatin1Char(',')) && !id.trimmed().isEmpty())
            ids << id;
    }
    // Lists keep one entry per non-empty id, in order.
    const QString list = ids.join(QLatin1Char(','));
    QString names;
    QString versions;
    catalog.OstrelNameList(list, names, versions);
    catalog.NameList(list);
    return 0;
}
