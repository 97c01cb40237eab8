// SPDX-License-Identifier: MIT
#include "workflow/WorkflowSettings.h"

#include "platform/Platform.h"
#include "util/FileUtil.h"
#include "util/XmlFiler.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <memory>

namespace Velmora::WorkflowCore {

namespace {

const QString kWorkflowPath = QStringLiteral("/WorkflowSettings/Workflows/Workflow");
const QString kId = QStringLiteral("Id");

// Moves the filer's cursor from the first "Workflow" element to the first one, it or a following
// sibling of any name, whose Id equals workflowId exactly: user settings tell apart ids that
// the catalogue would take as one.
bool GoToWorkflowElement(XmlFiler& filer, const QString& workflowId)
{
    if (!filer.GoToPath(kWorkflowPath))
        return false;
    do
    {
        if (filer.GetAttribute(kId, QString()) == workflowId)
            return true;
    } while (filer.GoToNextSibling());
    return false;
}

// What the settings file held when it was last read: for each Id, the attributes of the first
// element that carries it. Valid while the file keeps the identity it had then.
struct ReadCache
{
    QString file;
    Platform::FileIdentity identity;
    QHash<QString, QHash<QString, QString>> settings;
};
ReadCache s_cache;

bool LoadCache(const QString& file)
{
    const Platform::FileIdentity identity = Platform::IdentifyFile(file);
    if (!identity.exists)
        return false;
    if (s_cache.file == file && s_cache.identity == identity)
        return true;
    s_cache = ReadCache();
    XmlFiler filer(false);
    if (!filer.Open(file))
        return false;
    if (filer.GoToPath(kWorkflowPath))
    {
        do
        {
            const QDomElement element = filer.GetCurrentElement();
            const QString id = element.attribute(kId);
            if (s_cache.settings.contains(id))
                continue;
            QHash<QString, QString>& attributes = s_cache.settings[id];
            const QDomNamedNodeMap map = element.attributes();
            for (int i = 0; i < map.count(); ++i)
            {
                const QDomAttr attribute = map.item(i).toAttr();
                attributes.insert(attribute.name(), attribute.value());
            }
        } while (filer.GoToNextSibling());
    }
    s_cache.file = file;
    s_cache.identity = identity;
    return true;
}

// The document that gathers the writes of the running batches.
struct PendingWrites
{
    int depth = 0;
    QString file;
    std::unique_ptr<XmlFiler> filer;
    bool blocked = false; // the file exists but cannot be read: nothing may be written
    // The first element of each Id, so that a batch of thousands of writes stays linear.
    QHash<QString, QDomElement> elements;
};
PendingWrites s_pending;

void IndexPendingElements()
{
    XmlFiler& filer = *s_pending.filer;
    filer.PushPosition();
    if (filer.GoToPath(kWorkflowPath))
    {
        do
        {
            const QDomElement element = filer.GetCurrentElement();
            const QString id = element.attribute(kId);
            if (!s_pending.elements.contains(id))
                s_pending.elements.insert(id, element);
        } while (filer.GoToNextSibling());
    }
    filer.PopPosition();
}

void StorePending(const QString& workflowId, const QString& key, const QString& value)
{
    QDomElement element = s_pending.elements.value(workflowId);
    if (element.isNull())
    {
        XmlFiler& filer = *s_pending.filer;
        filer.GoToOrCreatePath(kWorkflowPath, true, true);
        filer.SetAttribute(kId, workflowId);
        element = filer.GetCurrentElement();
        s_pending.elements.insert(workflowId, element);
    }
    element.setAttribute(key, value);
}

void Store(XmlFiler& filer, const QString& workflowId, const QString& key, const QString& value)
{
    if (!GoToWorkflowElement(filer, workflowId))
    {
        filer.GoToOrCreatePath(kWorkflowPath, true, true);
        filer.SetAttribute(kId, workflowId);
    }
    filer.SetAttribute(key, value);
}

bool Commit(XmlFiler& filer, const QString& file)
{
    filer.EnsureXmlDeclaration();
    return filer.Save(file);
}

} // namespace

QString WorkflowSettingsFolder()
{
    const QString appData = ApplicationDataFolder();
    if (appData.isEmpty())
        return QString();
    return QStringLiteral("%1/%2/%3").arg(appData, QStringLiteral("Velmora"), QStringLiteral("WorkflowSettings"));
}

QString WorkflowSettingsFile()
{
    const QString folder = WorkflowSettingsFolder();
    if (folder.isEmpty())
        return QString();
    return folder + QStringLiteral("/WorkflowSettings.xml");
}

QString ReadWorkflowSetting(const QString& workflowId, const QString& key)
{
    if (key.isEmpty())
        return QString();
    const QString file = WorkflowSettingsFile();
    if (file.isEmpty())
        return QString();
    if (s_pending.depth > 0 && s_pending.filer && s_pending.file == file)
    {
        return s_pending.elements.value(workflowId).attribute(key);
    }
    if (!LoadCache(file))
        return QString();
    return s_cache.settings.value(workflowId).value(key);
}

void WriteWorkflowSetting(const QString& workflowId, const QString& key, const QString& value)
{
    if (key.isEmpty())
        return;
    const QString folder = WorkflowSettingsFolder();
    if (folder.isEmpty() || !MakePrivateFolders(folder))
        return;
    const QString file = WorkflowSettingsFile();
    if (s_pending.depth > 0)
    {
        if (!s_pending.filer || s_pending.file != file)
        {
            s_pending.file = file;
            s_pending.filer = std::make_unique<XmlFiler>(false);
            // A file that is there but cannot be read is the user's data all the same.
            s_pending.blocked = QFileInfo::exists(file) && !s_pending.filer->Open(file);
            s_pending.elements.clear();
            if (!s_pending.blocked)
                IndexPendingElements();
        }
        if (!s_pending.blocked)
            StorePending(workflowId, key, value);
        return;
    }
    XmlFiler filer(false);
    // A file that is there but cannot be read is the user's data all the same: never replace it.
    if (QFileInfo::exists(file) && !filer.Open(file))
        return;
    Store(filer, workflowId, key, value);
    Commit(filer, file);
}

WorkflowSettingsBatch::WorkflowSettingsBatch()
{
    ++s_pending.depth;
}

WorkflowSettingsBatch::~WorkflowSettingsBatch()
{
    if (--s_pending.depth > 0)
        return;
    if (s_pending.filer && !s_pending.blocked)
        Commit(*s_pending.filer, s_pending.file);
    s_pending = PendingWrites();
}

} // namespace Velmora::WorkflowCore
