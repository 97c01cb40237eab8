// Feeds any bytes to the XML filer as a file. Besides crashes, hangs and sanitizer reports it
// aborts when a document it accepted does not survive its own save: saving and opening again must
// give the same document, and the cursor must reach every element and come back.

#include "util/XmlFiler.h"

#include "FuzzSupport.h"

#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QStringList>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

// Visits every element below the cursor (depth first, siblings in order) and reads what the
// library reads from elements. Returns the number of elements visited.
int Walk(XmlFiler& filer, int budget)
{
    int visited = 0;
    do
    {
        if (++visited > budget)
            break;
        const QDomElement element = filer.GetCurrentElement();
        Check(!element.isNull());
        const QDomNamedNodeMap attributes = element.attributes();
        for (int i = 0; i < attributes.count(); ++i)
        {
            const QString name = attributes.item(i).nodeName();
            Check(filer.GetAttribute(name, QStringLiteral("\x01missing")) == element.attribute(name));
            filer.GetBoolAttribute(name, false);
            filer.GetDateTimeAttribute(name, QDateTime());
        }
        filer.GetText();
        // The path of the cursor leads back to an element of the same name.
        const QString path = filer.GetCurrentPath();
        Check(path.startsWith(QLatin1Char('/')));
        filer.PushPosition();
        if (filer.GoToPath(path))
            Check(filer.GetCurrentElement().tagName() == element.tagName());
        filer.PopPosition();
        Check(filer.GetCurrentElement() == element);

        filer.PushPosition();
        if (filer.GoToFirstChild())
            visited += Walk(filer, budget - visited);
        filer.PopPosition();
        Check(filer.GetCurrentElement() == element);
    } while (filer.GoToNextSibling());
    return visited;
}

// The document as text with each element's attributes in the order of their names. The
// document keeps an element's attributes in a hash and writes them in the hash's order, which
// follows from the order they were added in: a document read back from its own save added them
// in the order it wrote them, and may list them otherwise. Everything else keeps its order.
void AppendCanonical(const QDomNode& node, QString& out)
{
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
    {
        out += QString::number(int(child.nodeType())) + QLatin1Char('<') + child.nodeName();
        if (child.isElement())
        {
            const QDomNamedNodeMap attributes = child.attributes();
            QStringList pairs;
            for (int i = 0; i < attributes.count(); ++i)
                pairs << attributes.item(i).nodeName() + QLatin1Char('=') + attributes.item(i).nodeValue();
            pairs.sort();
            out += QLatin1Char(' ') + pairs.join(QLatin1Char('\n'));
        }
        else
        {
            out += QLatin1Char(' ') + child.nodeValue();
        }
        out += QLatin1Char('>');
        AppendCanonical(child, out);
        out += QLatin1String("</>");
    }
}

QString Canonical(const QDomDocument& document)
{
    QString out;
    AppendCanonical(document, out);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString in = Folder() + QStringLiteral("/in.xml");
    const QString out = Folder() + QStringLiteral("/out.xml");
    Check(PutFile(in, Bytes(data, size)));

    XmlFiler filer(false);
    if (!filer.Open(in))
        return 0;
    Check(!filer.GetDocumentElement().isNull());
    Walk(filer, 20000);

    // What the filer writes, it reads back as the same document: the one it holds after the save,
    // which names UTF-8 as its encoding and holds no character a file may not.
    Check(filer.Save(out));
    const QString first = Canonical(filer.GetDocument());
    XmlFiler again(false);
    Check(again.Open(out));
    Check(Canonical(again.GetDocument()) == first);

    // The inner markup of the root goes into another document whole.
    const QString inner = filer.GetInnerXml();
    XmlFiler copy(false);
    copy.Create(QStringLiteral("Copy"));
    if (filer.GetDocumentElement().hasChildNodes())
        copy.AppendXml(inner);
    return 0;
}
