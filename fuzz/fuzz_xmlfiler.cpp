// Feeds any bytes to the XML filer as a file. Besides crashes, hangs and sanitizer reports it
// aborts when a document it accepted does not survive its own save: saving and opening again must
// give the same document, and the cursor must reach every element and come back.

#include "util/XmlFiler.h"

#include "FuzzSupport.h"

#include <QDomNamedNodeMap>

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
    const QString first = filer.GetDocument().toString(4);
    XmlFiler again(false);
    Check(again.Open(out));
    Check(again.GetDocument().toString(4) == first);

    // The inner markup of the root goes into another document whole.
    const QString inner = filer.GetInnerXml();
    XmlFiler copy(false);
    copy.Create(QStringLiteral("Copy"));
    if (filer.GetDocumentElement().hasChildNodes())
        copy.AppendXml(inner);
    return 0;
}
