// SPDX-License-Identifier: MIT
#include "execution/ExecutingRegistry.h"

#include "platform/Platform.h"
#include "platform/SharedSegment.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QVarLengthArray>
#include <QtEndian>

#include <cstring>
#include <utility>

namespace Velmora::WorkflowCore {

namespace {

constexpr quint32 kNullString = 0xFFFFFFFFu;
// Two empty strings, two ids, the handle, an empty application list, the status, an empty
// message and the target id.
constexpr qsizetype kSmallestEntry = 4 + 4 + 4 + 4 + 8 + 4 + 4 + 4 + 4;

// Reads the data-stream encoding from untrusted bytes: every count and length is checked against
// what is left before anything is taken or allocated.
class SegmentReader
{
public:
    SegmentReader(const char* data, int size)
        : m_at(reinterpret_cast<const uchar*>(data)), m_end(m_at + (size > 0 ? size : 0))
    {
    }

    qsizetype Left() const { return m_end - m_at; }

    bool Int32(qint32& value)
    {
        if (Left() < 4)
            return false;
        value = qFromBigEndian<qint32>(m_at);
        m_at += 4;
        return true;
    }

    bool Int64(qint64& value)
    {
        if (Left() < 8)
            return false;
        value = qFromBigEndian<qint64>(m_at);
        m_at += 8;
        return true;
    }

    bool String(QString& value)
    {
        qint32 raw = 0;
        if (!Int32(raw))
            return false;
        const quint32 bytes = static_cast<quint32>(raw);
        if (bytes == kNullString)
        {
            value = QString();
            return true;
        }
        if (bytes % 2 != 0 || bytes > static_cast<quint32>(Left()))
            return false;
        const qsizetype units = static_cast<qsizetype>(bytes / 2);
        value = QString(units, Qt::Uninitialized);
        QChar* out = value.data();
        for (qsizetype i = 0; i < units; ++i)
            out[i] = QChar(qFromBigEndian<quint16>(m_at + 2 * i));
        m_at += bytes;
        return true;
    }

private:
    const uchar* m_at;
    const uchar* m_end;
};

// Writes into a fixed, zero-filled segment image; once something does not fit, it stays failed.
class SegmentWriter
{
public:
    explicit SegmentWriter(int size) : m_image(size, '\0') {}

    void Int32(qint32 value) { Put(value); }
    void Int64(qint64 value) { Put(value); }

    void String(const QString& value)
    {
        if (value.isNull())
        {
            Int32(static_cast<qint32>(kNullString));
            return;
        }
        const qsizetype bytes = value.size() * 2;
        if (!m_ok || bytes > m_image.size() - m_at - 4)
        {
            m_ok = false;
            return;
        }
        Int32(static_cast<qint32>(bytes));
        uchar* out = reinterpret_cast<uchar*>(m_image.data()) + m_at;
        const QChar* in = value.constData();
        for (qsizetype i = 0; i < value.size(); ++i)
            qToBigEndian<quint16>(in[i].unicode(), out + 2 * i);
        m_at += bytes;
    }

    QByteArray Take() { return m_ok ? std::move(m_image) : QByteArray(); }

private:
    template <typename T> void Put(T value)
    {
        if (!m_ok || m_image.size() - m_at < qsizetype(sizeof(T)))
        {
            m_ok = false;
            return;
        }
        qToBigEndian<T>(value, reinterpret_cast<uchar*>(m_image.data()) + m_at);
        m_at += sizeof(T);
    }

    QByteArray m_image;
    qsizetype m_at = 0;
    bool m_ok = true;
};

bool ReadEntry(SegmentReader& reader, ExecutingWorkflowRecord& entry)
{
    qint32 applications = 0;
    if (!reader.String(entry.WorkflowId) || !reader.String(entry.SourceFile) ||
        !reader.Int32(entry.HostProcessId) || !reader.Int32(entry.LauncherProcessId) ||
        !reader.Int64(entry.WorkflowHandle) || !reader.Int32(applications))
        return false;
    if (applications < 0 || applications > reader.Left() / 4)
        return false;
    entry.ExecutingApplications.reserve(applications);
    for (qint32 i = 0; i < applications; ++i)
    {
        qint32 id = 0;
        reader.Int32(id);
        entry.ExecutingApplications.append(id);
    }
    return reader.Int32(entry.ExitStatus) && reader.String(entry.ErrorMessage) &&
           reader.Int32(entry.TargetProductProcessId);
}

qint64 HandleOf(const Workflow* workflow)
{
    return static_cast<qint64>(reinterpret_cast<quintptr>(workflow));
}

// The entry that this process registered for the workflow: its own handle and the same id.
ExecutingWorkflowRecord* FindEntry(QList<ExecutingWorkflowRecord>& entries, Workflow* workflow)
{
    const QString& id = ImpOf(workflow)->Fields().Id;
    const qint64 handle = HandleOf(workflow);
    for (ExecutingWorkflowRecord& entry : entries)
    {
        if (entry.WorkflowHandle == handle && entry.WorkflowId.compare(id, Qt::CaseInsensitive) == 0)
            return &entry;
    }
    return nullptr;
}

} // namespace

const QString& ExecutingRegistry::SegmentKey()
{
    static const QString key = QStringLiteral("VmWorkflowCore.ExecutingWorkflows");
    return key;
}

ExecutingRegistry::ExecutingRegistry(bool isHostProcess)
    : m_isHostProcess(isHostProcess),
      m_segment(std::make_unique<Platform::SharedSegment>(SegmentKey(), SegmentSize))
{
    Reach(true, true);
}

ExecutingRegistry::~ExecutingRegistry() = default;

QList<ExecutingWorkflowRecord> ExecutingRegistry::ParseEntries(const char* data, int size)
{
    QList<ExecutingWorkflowRecord> entries;
    SegmentReader reader(data, size);
    qint32 count = 0;
    if (!reader.Int32(count))
        return entries;
    // A count that more entries than the bytes could ever hold is a damaged header, not a list.
    if (count <= 0 || count > reader.Left() / kSmallestEntry)
        return entries;
    for (qint32 i = 0; i < count; ++i)
    {
        ExecutingWorkflowRecord entry;
        if (!ReadEntry(reader, entry))
            break;
        entries.append(std::move(entry));
    }
    return entries;
}

QByteArray ExecutingRegistry::SerializeEntries(const QList<ExecutingWorkflowRecord>& entries)
{
    SegmentWriter writer(SegmentSize);
    writer.Int32(static_cast<qint32>(entries.size()));
    for (const ExecutingWorkflowRecord& entry : entries)
    {
        writer.String(entry.WorkflowId);
        writer.String(entry.SourceFile);
        writer.Int32(entry.HostProcessId);
        writer.Int32(entry.LauncherProcessId);
        writer.Int64(entry.WorkflowHandle);
        writer.Int32(static_cast<qint32>(entry.ExecutingApplications.size()));
        for (int id : entry.ExecutingApplications)
            writer.Int32(id);
        writer.Int32(entry.ExitStatus);
        writer.String(entry.ErrorMessage);
        writer.Int32(entry.TargetProductProcessId);
    }
    return writer.Take();
}

bool ExecutingRegistry::Reach(bool forWriting, bool mayCreate) const
{
    using Access = Platform::SharedSegment::Access;
    if (m_segment->IsAttached() && (!forWriting || m_segment->IsWritable()))
        return true;
    if (mayCreate)
    {
        if (!m_segment->Attach(Access::ReadWrite))
            m_segment->Create();
        return m_segment->IsWritable();
    }
    if (!m_segment->IsAttached())
        m_segment->Attach(m_isHostProcess ? Access::ReadWrite : Access::ReadOnly);
    return forWriting ? m_segment->IsWritable() : m_segment->IsAttached();
}

QList<ExecutingWorkflowRecord> ExecutingRegistry::ReadAll() const
{
    if (!Reach(false, false))
        return {};
    m_copy.resize(SegmentSize);
    if (!m_segment->Lock())
        return {};
    const bool copied = m_segment->CopyOut(m_copy.data());
    m_segment->Unlock();
    if (!copied)
        return {};
    return ParsedCopy();
}

const QList<ExecutingWorkflowRecord>& ExecutingRegistry::ParsedCopy() const
{
    if (m_parsedBytes.size() != m_copy.size() ||
        std::memcmp(m_parsedBytes.constData(), m_copy.constData(), size_t(m_copy.size())) != 0)
    {
        m_parsed = ParseEntries(m_copy.constData(), SegmentSize);
        // The buffers trade places, so that neither is ever reallocated.
        std::swap(m_parsedBytes, m_copy);
    }
    return m_parsed;
}

template <typename Edit> bool ExecutingRegistry::Change(bool mayCreate, Edit edit)
{
    if (!Reach(true, mayCreate))
        return false;
    m_copy.resize(SegmentSize);
    // Held from the read through the write, so that changes of other processes are never lost.
    if (!m_segment->Lock())
        return false;
    bool done = false;
    if (m_segment->CopyOut(m_copy.data()))
    {
        QList<ExecutingWorkflowRecord> entries = ParsedCopy();
        switch (edit(entries))
        {
        case Outcome::Unchanged:
            done = true;
            break;
        case Outcome::Changed:
        {
            const QByteArray image = SerializeEntries(entries);
            done = !image.isEmpty() && m_segment->CopyIn(image.constData(), static_cast<int>(image.size()));
            break;
        }
        case Outcome::Failed:
            break;
        }
    }
    m_segment->Unlock();
    return done;
}

QList<ExecutingWorkflowRecord> ExecutingRegistry::Enumerate(bool launchedByThisProcessOnly,
                                                            bool includeFinished) const
{
    const QList<ExecutingWorkflowRecord> entries = ReadAll();
    QList<ExecutingWorkflowRecord> result;
    if (entries.isEmpty())
        return result;
    const qint64 self = Platform::CurrentProcessId();
    // One look per host within one enumeration: a host usually holds several entries.
    QVarLengthArray<std::pair<int, bool>, 16> alive;
    const auto isAlive = [&alive](int processId) {
        for (const auto& known : alive)
        {
            if (known.first == processId)
                return known.second;
        }
        const bool running = Platform::IsProcessAlive(processId);
        alive.append({processId, running});
        return running;
    };
    for (const ExecutingWorkflowRecord& entry : entries)
    {
        if (launchedByThisProcessOnly && entry.LauncherProcessId != self)
            continue;
        // A host that vanished without reporting an exit left a stale entry behind.
        if (entry.ExitStatus == 0 && !isAlive(entry.HostProcessId))
            continue;
        if (entry.ExitStatus != 0 && !includeFinished)
            continue;
        result.append(entry);
    }
    return result;
}

QList<ExecutingWorkflow*> ExecutingRegistry::Snapshot(bool launchedByThisProcessOnly,
                                                      bool includeFinished) const
{
    QList<ExecutingWorkflow*> workflows;
    for (const ExecutingWorkflowRecord& record : Enumerate(launchedByThisProcessOnly, includeFinished))
        workflows.append(FacadeAccess::MakeExecutingWorkflow(new ExecutingWorkflowRecord(record)));
    return workflows;
}

bool ExecutingRegistry::Add(Workflow* workflow, int hostProcessId, int launcherProcessId)
{
    if (!workflow)
        return false;
    const WorkflowFields& fields = ImpOf(workflow)->Fields();
    ExecutingWorkflowRecord added;
    added.WorkflowId = fields.Id;
    added.SourceFile = fields.SourceFile;
    added.HostProcessId = hostProcessId;
    added.LauncherProcessId = launcherProcessId;
    added.ExitStatus = 0;
    added.ErrorMessage = QLatin1String("");
    added.TargetProductProcessId = 0;
    added.WorkflowHandle = HandleOf(workflow);
    return Change(true, [&](QList<ExecutingWorkflowRecord>& entries) {
        for (ExecutingWorkflowRecord& entry : entries)
        {
            if (entry.ExitStatus != 0 && entry.LauncherProcessId == launcherProcessId &&
                entry.WorkflowId.compare(added.WorkflowId, Qt::CaseInsensitive) == 0)
            {
                entry = added;
                return Outcome::Changed;
            }
        }
        entries.append(added);
        return Outcome::Changed;
    });
}

bool ExecutingRegistry::ChangeEntry(Workflow* workflow, const EntryEdit& edit)
{
    if (!workflow)
        return false;
    return Change(false, [&](QList<ExecutingWorkflowRecord>& entries) {
        ExecutingWorkflowRecord* entry = FindEntry(entries, workflow);
        return entry ? edit(*entry) : Outcome::Failed;
    });
}

bool ExecutingRegistry::SetExitStatus(Workflow* workflow, int status, const QString& message)
{
    return ChangeEntry(workflow, [&](ExecutingWorkflowRecord& entry) {
        entry.ExitStatus = status;
        entry.ErrorMessage = message;
        return Outcome::Changed;
    });
}

bool ExecutingRegistry::AddExecutingApplication(Workflow* workflow, int processId)
{
    return ChangeEntry(workflow, [&](ExecutingWorkflowRecord& entry) {
        if (entry.ExecutingApplications.contains(processId))
            return Outcome::Unchanged;
        entry.ExecutingApplications.append(processId);
        return Outcome::Changed;
    });
}

bool ExecutingRegistry::RemoveExecutingApplication(Workflow* workflow, int processId)
{
    return ChangeEntry(workflow, [&](ExecutingWorkflowRecord& entry) {
        return entry.ExecutingApplications.removeAll(processId) > 0 ? Outcome::Changed : Outcome::Unchanged;
    });
}

} // namespace Velmora::WorkflowCore
