// Feeds any bytes to the per-user settings reader as the settings file, then writes one setting:
// the written value reads back, every other setting read before reads the same afterwards, and a
// file that cannot be read is never replaced. Bytes the writer's own layout reader takes read the
// same through the XML reader.

#include "workflow/WorkflowSettings.h"

#include "FuzzSupport.h"

#include <QDomDocument>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowFuzz;

namespace {

const QString kShow = QStringLiteral("ShowIntroductionOnExecute");
const QString kOther = QStringLiteral("LastPage");

// Ids the file itself names (the first few "Id" attributes anywhere), plus two fixed ones.
QStringList IdsOf(const QByteArray& bytes)
{
    QStringList ids{QStringLiteral("W1"), QString()};
    QDomDocument document;
    if (!document.setContent(bytes))
        return ids;
    const QDomNodeList all = document.elementsByTagName(QStringLiteral("Workflow"));
    for (int i = 0; i < all.count() && ids.size() < 8; ++i)
    {
        const QDomElement element = all.item(i).toElement();
        if (element.hasAttribute(QStringLiteral("Id")))
            ids << element.attribute(QStringLiteral("Id"));
    }
    return ids;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(Folder() + QStringLiteral("/data")));
    qputenv("HOME", QFile::encodeName(Folder()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = Bytes(data, size);
    // What the byte-by-byte reader reads of the writer's own layout, the XML reader reads the same.
    QList<QString> asWritten;
    QList<QString> plain;
    if (ReadSettingsAsWritten(bytes, asWritten))
        Check(ReadPlainSettings(bytes, plain) && plain == asWritten);
    const QString file = WorkflowSettingsFile();
    Check(!file.isEmpty());
    QDir().mkpath(WorkflowSettingsFolder());
    Check(PutFile(file, bytes));
    // One store for the whole input, as a manager holds one: its cache and batches are exercised.
    WorkflowSettingsStore store;

    const QStringList ids = IdsOf(bytes);
    QList<QPair<QString, QString>> before;
    for (const QString& id : ids)
    {
        const QString show = store.Read(id, kShow);
        Check(store.Read(id, kShow) == show); // reading twice reads the same
        before.append({show, store.Read(id, kOther)});
    }

    const QString target = ids.value(2, ids.first());
    const QString value = QStringLiteral("new <value> & \"quoted\" \t text");
    store.Write(target, kOther, value);

    const QByteArray after = [&file] {
        QFile written(file);
        return written.open(QIODevice::ReadOnly) ? written.readAll() : QByteArray();
    }();
    if (after == bytes)
    {
        // Nothing was written: only a file that could not be read is left alone.
        Check(store.Read(target, kOther) != value || before.value(ids.indexOf(target)).second == value);
        return 0;
    }
    Check(store.Read(target, kOther) == value);
    for (int i = 0; i < ids.size(); ++i)
    {
        Check(store.Read(ids.at(i), kShow) == before.at(i).first);
        if (ids.at(i) != target)
            Check(store.Read(ids.at(i), kOther) == before.at(i).second);
    }

    // A batch of writes lands as a whole.
    {
        WorkflowSettingsStore::Batch batch(store);
        store.Write(target, kShow, QStringLiteral("False"));
        store.Write(QStringLiteral("W1"), kOther, QStringLiteral("batched"));
        Check(store.Read(target, kShow) == QLatin1String("False"));
    }
    Check(store.Read(target, kShow) == QLatin1String("False"));
    Check(store.Read(QStringLiteral("W1"), kOther) == QLatin1String("batched"));
    Check(store.Read(target, kOther) == value || target == QLatin1String("W1"));
    return 0;
}
