// SPDX-License-Identifier: MIT
#include "workflow/WorkflowSettings.h"

#include "platform/Platform.h"
#include "util/FileUtil.h"
#include "util/XmlFiler.h"
#include "util/XmlStreamReading.h"

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

// The attributes of one element, packed into one text as name, value, name, value, each ended
// by a null character (which no XML name or value holds): a table of a hundred thousand ids
// then costs a few times the file, where a hash per element would cost many times it.
using PackedSettings = QHash<QString, QString>;

void Pack(QString& packed, const QString& name, const QString& value)
{
    packed += name;
    packed += QChar(0);
    packed += value;
    packed += QChar(0);
}

QString Unpack(const QString& packed, const QString& key)
{
    qsizetype at = 0;
    while (at < packed.size())
    {
        const qsizetype nameEnd = packed.indexOf(QChar(0), at);
        const qsizetype valueEnd = packed.indexOf(QChar(0), nameEnd + 1);
        if (nameEnd < 0 || valueEnd < 0)
            break;
        if (QStringView(packed).mid(at, nameEnd - at) == key)
            return packed.mid(nameEnd + 1, valueEnd - nameEnd - 1);
        at = valueEnd + 1;
    }
    return QString();
}

// Reads the file as a whole document; false when it cannot be opened or parsed.
bool ReadPackedFromDocument(const QString& file, PackedSettings& settings)
{
    XmlFiler filer(false);
    if (!filer.Open(file))
        return false;
    if (filer.GoToPath(kWorkflowPath))
    {
        do
        {
            const QDomElement element = filer.GetCurrentElement();
            const QString id = element.attribute(kId);
            if (settings.contains(id))
                continue;
            QString& packed = settings[id];
            const QDomNamedNodeMap map = element.attributes();
            for (int i = 0; i < map.count(); ++i)
            {
                const QDomAttr attribute = map.item(i).toAttr();
                Pack(packed, attribute.name(), attribute.value());
            }
        } while (filer.GoToNextSibling());
    }
    return true;
}

// Reads the file in one streaming pass; a file that declares a document type goes the
// document's way, which alone expands its entities.
bool ReadPacked(const QString& file, PackedSettings& settings)
{
    PackedSettings read;
    StreamReadResult result;
    {
        QByteArray bytes;
        if (!ReadRegularFileBytes(file, bytes))
            return false;
        result = ParseElementRun(bytes, kWorkflowPath,
                                 [&read](const QList<std::pair<QString, QString>>& attributes) {
                                     QString id;
                                     for (const auto& [name, value] : attributes)
                                     {
                                         if (name == kId)
                                         {
                                             id = value;
                                             break;
                                         }
                                     }
                                     if (read.contains(id))
                                         return;
                                     QString& packed = read[id];
                                     for (const auto& [name, value] : attributes)
                                         Pack(packed, name, value);
                                     packed.squeeze();
                                 });
    }
    if (result == StreamReadResult::NeedsDocument)
        return ReadPackedFromDocument(file, settings);
    if (result != StreamReadResult::Read)
        return false;
    settings = std::move(read);
    return true;
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
    return QStringLiteral("%1/%2/%3").arg(appData, Platform::MakerName(), QStringLiteral("WorkflowSettings"));
}

QString WorkflowSettingsFile()
{
    const QString folder = WorkflowSettingsFolder();
    if (folder.isEmpty())
        return QString();
    return folder + QStringLiteral("/WorkflowSettings.xml");
}

bool ReadWorkflowSettingsFile(const QString& file, QHash<QString, QHash<QString, QString>>& settings,
                              bool fromDocument)
{
    PackedSettings packed;
    if (!(fromDocument ? ReadPackedFromDocument(file, packed) : ReadPacked(file, packed)))
        return false;
    settings.clear();
    for (auto it = packed.cbegin(); it != packed.cend(); ++it)
    {
        QHash<QString, QString>& attributes = settings[it.key()];
        const QStringList parts = it.value().split(QChar(0));
        for (qsizetype i = 0; i + 1 < parts.size(); i += 2)
            attributes.insert(parts.at(i), parts.at(i + 1));
    }
    return true;
}

// What the settings file held when it was last read. Valid while the file keeps the identity
// it had then.
struct WorkflowSettingsStore::ReadCache
{
    QString file;
    Platform::FileIdentity identity;
    PackedSettings settings;
};

// The document that gathers the writes of the running batches.
struct WorkflowSettingsStore::PendingWrites
{
    int depth = 0;
    QString file;
    std::unique_ptr<XmlFiler> filer;
    bool blocked = false; // the file exists but cannot be read: nothing may be written
    // The first element of each Id, so that a batch of thousands of writes stays linear.
    QHash<QString, QDomElement> elements;
};

WorkflowSettingsStore::WorkflowSettingsStore()
    : m_cache(std::make_unique<ReadCache>()), m_pending(std::make_unique<PendingWrites>())
{
}

WorkflowSettingsStore::~WorkflowSettingsStore() = default;

bool WorkflowSettingsStore::LoadCache(const QString& file)
{
    const Platform::FileIdentity identity = Platform::IdentifyFile(file);
    if (!identity.exists)
        return false;
    if (m_cache->file == file && m_cache->identity == identity)
        return true;
    *m_cache = ReadCache();
    if (!ReadPacked(file, m_cache->settings))
        return false;
    m_cache->file = file;
    m_cache->identity = identity;
    return true;
}

void WorkflowSettingsStore::IndexPendingElements()
{
    XmlFiler& filer = *m_pending->filer;
    filer.PushPosition();
    if (filer.GoToPath(kWorkflowPath))
    {
        do
        {
            const QDomElement element = filer.GetCurrentElement();
            const QString id = element.attribute(kId);
            if (!m_pending->elements.contains(id))
                m_pending->elements.insert(id, element);
        } while (filer.GoToNextSibling());
    }
    filer.PopPosition();
}

void WorkflowSettingsStore::StorePending(const QString& workflowId, const QString& key, const QString& value)
{
    QDomElement element = m_pending->elements.value(workflowId);
    if (element.isNull())
    {
        XmlFiler& filer = *m_pending->filer;
        filer.GoToOrCreatePath(kWorkflowPath, true, true);
        filer.SetAttribute(kId, workflowId);
        element = filer.GetCurrentElement();
        m_pending->elements.insert(workflowId, element);
    }
    element.setAttribute(key, value);
}

QString WorkflowSettingsStore::Read(const QString& workflowId, const QString& key)
{
    if (key.isEmpty())
        return QString();
    const QString file = WorkflowSettingsFile();
    if (file.isEmpty())
        return QString();
    if (m_pending->depth > 0 && m_pending->filer && m_pending->file == file)
        return m_pending->elements.value(workflowId).attribute(key);
    if (!LoadCache(file))
        return QString();
    const auto found = m_cache->settings.constFind(workflowId);
    return found == m_cache->settings.constEnd() ? QString() : Unpack(*found, key);
}

void WorkflowSettingsStore::Write(const QString& workflowId, const QString& key, const QString& value)
{
    if (key.isEmpty())
        return;
    const QString folder = WorkflowSettingsFolder();
    if (folder.isEmpty() || !MakePrivateFolders(folder))
        return;
    const QString file = WorkflowSettingsFile();
    if (m_pending->depth > 0)
    {
        if (!m_pending->filer || m_pending->file != file)
        {
            m_pending->file = file;
            m_pending->filer = std::make_unique<XmlFiler>(false);
            // A file that is there but cannot be read is the user's data all the same.
            m_pending->blocked = QFileInfo::exists(file) && !m_pending->filer->Open(file);
            m_pending->elements.clear();
            if (!m_pending->blocked)
                IndexPendingElements();
        }
        if (!m_pending->blocked)
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

WorkflowSettingsStore::Batch::Batch(WorkflowSettingsStore& store) : m_store(store)
{
    ++m_store.m_pending->depth;
}

WorkflowSettingsStore::Batch::~Batch()
{
    PendingWrites& pending = *m_store.m_pending;
    if (--pending.depth > 0)
        return;
    if (pending.filer && !pending.blocked)
        Commit(*pending.filer, pending.file);
    pending = PendingWrites();
}

} // namespace Velmora::WorkflowCore
