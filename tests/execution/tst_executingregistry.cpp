// SPDX-License-Identifier: MIT
// The registry of executing workflows in its shared segment: the bytes, the enumeration rules,
// the changes, damaged and foreign segments, and real host processes beside the test.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingRegistry.h"
#include "manager/WorkflowManagerImp.h"
#include "platform/Platform.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "TestEnvironment.h"
#include "WideText.h"

#include <QDataStream>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::Wide;

namespace {

constexpr int kSize = ExecutingRegistry::SegmentSize;

ExecutingWorkflowRecord Entry(const QString& id, int host, int launcher, int status = 0)
{
    ExecutingWorkflowRecord entry;
    entry.WorkflowId = id;
    entry.SourceFile = QStringLiteral("/workflows/%1.workflow").arg(id);
    entry.HostProcessId = host;
    entry.LauncherProcessId = launcher;
    entry.ExitStatus = status;
    entry.ErrorMessage = status ? QStringLiteral("ended with %1").arg(status) : QString();
    entry.TargetProductProcessId = 77;
    entry.WorkflowHandle = 0x1122334455667788LL;
    entry.ExecutingApplications = {11, 22};
    return entry;
}

// Qt's list comparison hands a null pointer to memcmp for some empty lists; the sanitizer objects.
bool SameIds(const QList<int>& a, const QList<int>& b)
{
    return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin());
}

bool Same(const ExecutingWorkflowRecord& a, const ExecutingWorkflowRecord& b)
{
    return a.WorkflowId == b.WorkflowId && a.WorkflowId.isNull() == b.WorkflowId.isNull() &&
           a.SourceFile == b.SourceFile && a.SourceFile.isNull() == b.SourceFile.isNull() &&
           a.HostProcessId == b.HostProcessId && a.LauncherProcessId == b.LauncherProcessId &&
           a.ExitStatus == b.ExitStatus && a.ErrorMessage == b.ErrorMessage &&
           a.ErrorMessage.isNull() == b.ErrorMessage.isNull() &&
           a.TargetProductProcessId == b.TargetProductProcessId && a.WorkflowHandle == b.WorkflowHandle &&
           SameIds(a.ExecutingApplications, b.ExecutingApplications);
}

// The segment's contents written the way the data stream writes them, field by field.
QByteArray HandWritten(const QList<ExecutingWorkflowRecord>& entries, int count = -1)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::BigEndian);
    stream << qint32(count < 0 ? entries.size() : count);
    for (const ExecutingWorkflowRecord& e : entries)
    {
        stream << e.WorkflowId << e.SourceFile << qint32(e.HostProcessId) << qint32(e.LauncherProcessId)
               << qint64(e.WorkflowHandle) << qint32(e.ExecutingApplications.size());
        for (int id : e.ExecutingApplications)
            stream << qint32(id);
        stream << qint32(e.ExitStatus) << e.ErrorMessage << qint32(e.TargetProductProcessId);
    }
    return bytes;
}

QList<ExecutingWorkflowRecord> HandRead(const QByteArray& bytes, qint64* end = nullptr)
{
    QDataStream stream(bytes);
    stream.setByteOrder(QDataStream::BigEndian);
    qint32 count = 0;
    stream >> count;
    QList<ExecutingWorkflowRecord> entries;
    for (int i = 0; i < count && stream.status() == QDataStream::Ok; ++i)
    {
        ExecutingWorkflowRecord e;
        qint32 applications = 0;
        stream >> e.WorkflowId >> e.SourceFile >> e.HostProcessId >> e.LauncherProcessId >>
            e.WorkflowHandle >> applications;
        for (int a = 0; a < applications; ++a)
        {
            qint32 id = 0;
            stream >> id;
            e.ExecutingApplications.append(id);
        }
        stream >> e.ExitStatus >> e.ErrorMessage >> e.TargetProductProcessId;
        entries.append(e);
    }
    if (end)
        *end = stream.device() ? stream.device()->pos() : -1;
    return entries;
}

// A process id that surely no longer runs: a child that has exited and been reaped.
int EndedProcessId()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return static_cast<int>(child);
}

char ProcessState(pid_t pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    return close >= 0 && close + 2 < text.size() ? text.at(close + 2) : 0;
}

Workflow* NewWorkflow(const QString& id, const QString& sourceFile = QString())
{
    auto* workflow = new Workflow;
    ImpOf(workflow)->Fields().Id = id;
    ImpOf(workflow)->Fields().SourceFile = sourceFile;
    return workflow;
}

// The host helper in its own process, spoken to line by line. Spawned without Qt so that nothing
// reaps it behind the test's back: a killed host stays a zombie until Reap().
class HostProcess
{
public:
    ~HostProcess()
    {
        if (m_in >= 0)
            ::close(m_in); // the helper ends at the end of its input
        if (m_pid > 0)
        {
            for (int i = 0; i < 500 && ::waitpid(m_pid, nullptr, WNOHANG) == 0; ++i)
                ::usleep(10000);
            if (::waitpid(m_pid, nullptr, WNOHANG) == 0)
            {
                ::kill(m_pid, SIGKILL);
                ::waitpid(m_pid, nullptr, 0);
            }
        }
        if (m_out >= 0)
            ::close(m_out);
    }

    bool Start()
    {
        int in[2];
        int out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
            return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        char path[] = REGISTRY_HOST_PATH;
        char* argv[] = {path, nullptr};
        const int spawned = ::posix_spawn(&m_pid, path, &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        m_in = in[1];
        m_out = out[0];
        if (spawned != 0)
        {
            m_pid = -1;
            return false;
        }
        return ReadLine() == "ready";
    }

    QByteArray Command(const QByteArray& line, int timeoutMs = 60000)
    {
        if (!Send(line))
            return QByteArray();
        return ReadLine(timeoutMs);
    }

    bool Send(const QByteArray& line)
    {
        const QByteArray text = line + '\n';
        return ::write(m_in, text.constData(), static_cast<size_t>(text.size())) == text.size();
    }

    QByteArray ReadLine(int timeoutMs = 60000)
    {
        QDeadlineTimer deadline(timeoutMs);
        for (;;)
        {
            const qsizetype newline = m_buffer.indexOf('\n');
            if (newline >= 0)
            {
                const QByteArray line = m_buffer.left(newline);
                m_buffer.remove(0, newline + 1);
                return line;
            }
            pollfd ready{m_out, POLLIN, 0};
            if (::poll(&ready, 1, static_cast<int>(deadline.remainingTime())) <= 0)
                return QByteArray();
            char chunk[512];
            const ssize_t n = ::read(m_out, chunk, sizeof chunk);
            if (n <= 0)
                return QByteArray();
            m_buffer.append(chunk, n);
        }
    }

    int Pid() const { return static_cast<int>(m_pid); }
    void Kill() { ::kill(m_pid, SIGKILL); }
    void Reap()
    {
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

private:
    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
    QByteArray m_buffer;
};

} // namespace

class tst_ExecutingRegistry : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_runtime;
    std::vector<std::unique_ptr<Workflow>> m_workflows;

    QString RuntimeDir() const { return m_runtime->path() + QStringLiteral("/run"); }
    QString SegmentPath() const
    {
        return RuntimeDir() + QStringLiteral("/VmWorkflowCore.ExecutingWorkflows");
    }

    Workflow* Own(Workflow* workflow)
    {
        m_workflows.emplace_back(workflow);
        return workflow;
    }

    QByteArray SegmentBytes() const
    {
        QFile file(SegmentPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Puts bytes into the segment as another process would, padded with zeros to its size.
    bool WriteSegment(QByteArray bytes) const
    {
        if (bytes.size() < kSize)
            bytes.append(QByteArray(kSize - bytes.size(), '\0'));
        QFile file(SegmentPath());
        return file.open(QIODevice::ReadWrite) && file.write(bytes.left(kSize)) == kSize;
    }

    static int Self() { return static_cast<int>(::getpid()); }

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    // Every test gets a segment of its own through a private runtime folder.
    void init()
    {
        m_runtime = std::make_unique<QTemporaryDir>();
        QVERIFY(m_runtime->isValid());
        QVERIFY(QDir().mkpath(RuntimeDir()));
        QVERIFY(QFile::setPermissions(RuntimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(RuntimeDir()));
    }

    void cleanup()
    {
        WorkflowManager::Uninitialize();
        m_workflows.clear();
        m_runtime.reset();
    }

    void segmentIsAPrivateFileOfFixedSize()
    {
        ExecutingRegistry registry(false);
        struct stat info;
        QCOMPARE(::lstat(QFile::encodeName(SegmentPath()).constData(), &info), 0);
        QVERIFY(S_ISREG(info.st_mode));
        QCOMPARE(int(info.st_size), kSize);
        QCOMPARE(info.st_uid, ::geteuid());
        QCOMPARE(info.st_mode & 0777, mode_t(0600));
        QCOMPARE(::stat(QFile::encodeName(RuntimeDir()).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, mode_t(0700));
        QCOMPARE(SegmentBytes(), QByteArray(kSize, '\0'));
        QVERIFY(registry.ReadAll().isEmpty());
    }

    void handWrittenSegmentIsReadFieldByField()
    {
        ExecutingRegistry registry(false);
        ExecutingWorkflowRecord first = Entry(QStringLiteral("Id_First"), 101, 202, 3);
        ExecutingWorkflowRecord second = Entry(QStringLiteral("Id_Second \u00e9\u4e2d"), 303, 404);
        second.SourceFile = QString(); // a null string travels as 0xFFFFFFFF
        second.ErrorMessage = QLatin1String("");
        second.ExecutingApplications.clear();
        second.WorkflowHandle = -5;
        const QByteArray bytes = HandWritten({first, second});
        // Spot-check the encoding itself: count, then the first id's byte length and first unit.
        QCOMPARE(bytes.left(4), QByteArray::fromHex("00000002"));
        QCOMPARE(bytes.mid(4, 4), QByteArray::fromHex("00000010"));
        QCOMPARE(bytes.mid(8, 2), QByteArray::fromHex("0049"));
        QVERIFY(WriteSegment(bytes));
        const QList<ExecutingWorkflowRecord> read = registry.ReadAll();
        QCOMPARE(read.size(), 2);
        QVERIFY(Same(read.at(0), first));
        QVERIFY(Same(read.at(1), second));
        QVERIFY(read.at(1).SourceFile.isNull());
        QVERIFY(!read.at(1).ErrorMessage.isNull());
    }

    void writtenSegmentParsesByHand()
    {
        ExecutingRegistry registry(true);
        Workflow* workflow =
            Own(NewWorkflow(QStringLiteral("Id_Written"), QStringLiteral("/w/written.workflow")));
        QVERIFY(registry.Add(workflow, 1234, 5678));
        QVERIFY(registry.AddExecutingApplication(workflow, 42));
        QVERIFY(registry.AddExecutingApplication(workflow, 43));
        QVERIFY(registry.SetExitStatus(workflow, -9, QStringLiteral("stopped")));
        const QByteArray bytes = SegmentBytes();
        QCOMPARE(bytes.size(), kSize);
        qint64 end = 0;
        const QList<ExecutingWorkflowRecord> entries = HandRead(bytes, &end);
        QCOMPARE(entries.size(), 1);
        const ExecutingWorkflowRecord& e = entries.at(0);
        QCOMPARE(e.WorkflowId, QStringLiteral("Id_Written"));
        QCOMPARE(e.SourceFile, QStringLiteral("/w/written.workflow"));
        QCOMPARE(e.HostProcessId, 1234);
        QCOMPARE(e.LauncherProcessId, 5678);
        QCOMPARE(e.WorkflowHandle, qint64(reinterpret_cast<quintptr>(workflow)));
        QCOMPARE(e.ExecutingApplications, QList<int>({42, 43}));
        QCOMPARE(e.ExitStatus, -9);
        QCOMPARE(e.ErrorMessage, QStringLiteral("stopped"));
        QCOMPARE(e.TargetProductProcessId, 0);
        // Exactly the stream's bytes, then zeros to the end of the segment.
        QCOMPARE(bytes.left(end), HandWritten(entries));
        QCOMPARE(bytes.mid(end), QByteArray(kSize - end, '\0'));
    }

    void endedHostWithStatusZeroIsNeverEnumerated()
    {
        ExecutingRegistry registry(false);
        const int ended = EndedProcessId();
        QVERIFY(WriteSegment(HandWritten(
            {Entry(QStringLiteral("stale"), ended, Self()), Entry(QStringLiteral("live"), Self(), Self())})));
        for (bool includeFinished : {false, true})
        {
            const QList<ExecutingWorkflowRecord> listed = registry.Enumerate(false, includeFinished);
            QCOMPARE(listed.size(), 1);
            QCOMPARE(listed.at(0).WorkflowId, QStringLiteral("live"));
        }
        // Skipped, never deleted.
        QCOMPARE(registry.ReadAll().size(), 2);
    }

    void endedHostWithNonZeroStatusIsEnumeratedOnlyWithFinished()
    {
        ExecutingRegistry registry(false);
        const int ended = EndedProcessId();
        QVERIFY(WriteSegment(HandWritten({Entry(QStringLiteral("done"), ended, Self(), 4)})));
        QVERIFY(registry.Enumerate(false, false).isEmpty());
        const QList<ExecutingWorkflowRecord> listed = registry.Enumerate(false, true);
        QCOMPARE(listed.size(), 1);
        QCOMPARE(listed.at(0).ExitStatus, 4);
        QCOMPARE(listed.at(0).ErrorMessage, QStringLiteral("ended with 4"));
    }

    void addReplacesFinishedEntryOfSameLauncherInPlace()
    {
        ExecutingRegistry registry(true);
        QVERIFY(WriteSegment(HandWritten({Entry(QStringLiteral("ID_AGAIN"), Self(), 500, 2),
                                          Entry(QStringLiteral("other"), Self(), 500)})));
        Workflow* workflow =
            Own(NewWorkflow(QStringLiteral("Id_Again"), QStringLiteral("/w/again.workflow")));
        QVERIFY(registry.Add(workflow, 900, 500));
        const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
        QCOMPARE(entries.size(), 2);
        QCOMPARE(entries.at(0).WorkflowId, QStringLiteral("Id_Again"));
        QCOMPARE(entries.at(0).SourceFile, QStringLiteral("/w/again.workflow"));
        QCOMPARE(entries.at(0).HostProcessId, 900);
        QCOMPARE(entries.at(0).ExitStatus, 0);
        QVERIFY(entries.at(0).ErrorMessage.isEmpty());
        QVERIFY(entries.at(0).ExecutingApplications.isEmpty());
        QCOMPARE(entries.at(0).TargetProductProcessId, 0);
        QCOMPARE(entries.at(1).WorkflowId, QStringLiteral("other"));
    }

    void addFromAnotherLauncherGetsANewEntry()
    {
        ExecutingRegistry registry(true);
        QVERIFY(WriteSegment(HandWritten({Entry(QStringLiteral("Id_Shared"), Self(), 500, 2)})));
        Workflow* workflow = Own(NewWorkflow(QStringLiteral("Id_Shared")));
        QVERIFY(registry.Add(workflow, 900, 501));
        const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
        QCOMPARE(entries.size(), 2);
        QCOMPARE(entries.at(0).LauncherProcessId, 500);
        QCOMPARE(entries.at(0).ExitStatus, 2);
        QCOMPARE(entries.at(1).LauncherProcessId, 501);
    }

    void addNextToARunningEntryOfSameLauncherAppends()
    {
        ExecutingRegistry registry(true);
        QVERIFY(WriteSegment(HandWritten({Entry(QStringLiteral("Id_Busy"), Self(), 500)})));
        QVERIFY(registry.Add(Own(NewWorkflow(QStringLiteral("Id_Busy"))), 900, 500));
        QCOMPARE(registry.ReadAll().size(), 2);
    }

    void addingTheSameApplicationTwiceKeepsOneCopy()
    {
        ExecutingRegistry registry(true);
        Workflow* workflow = Own(NewWorkflow(QStringLiteral("Id_Apps")));
        QVERIFY(registry.Add(workflow, Self(), Self()));
        QVERIFY(registry.AddExecutingApplication(workflow, 31));
        QVERIFY(registry.AddExecutingApplication(workflow, 31));
        QVERIFY(registry.AddExecutingApplication(workflow, 32));
        QCOMPARE(registry.ReadAll().at(0).ExecutingApplications, QList<int>({31, 32}));
        QVERIFY(registry.RemoveExecutingApplication(workflow, 31));
        QCOMPARE(registry.ReadAll().at(0).ExecutingApplications, QList<int>({32}));
    }

    void changesFindOnlyTheEntryOfThisWorkflowObject()
    {
        ExecutingRegistry registry(true);
        Workflow* workflow = Own(NewWorkflow(QStringLiteral("Id_Mine")));
        Workflow* twin = Own(NewWorkflow(QStringLiteral("Id_Mine")));
        QVERIFY(registry.Add(workflow, Self(), Self()));
        // Same id, other object: another process's handle never matches.
        QVERIFY(!registry.SetExitStatus(twin, 1, QStringLiteral("no")));
        QVERIFY(!registry.AddExecutingApplication(twin, 5));
        QCOMPARE(registry.ReadAll().at(0).ExitStatus, 0);
        // The id is compared ignoring case.
        ImpOf(workflow)->Fields().Id = QStringLiteral("ID_MINE");
        QVERIFY(registry.SetExitStatus(workflow, 6, QStringLiteral("six")));
        QCOMPARE(registry.ReadAll().at(0).ExitStatus, 6);
    }

    void launchedByThisProcessOnlySkipsOtherLaunchers()
    {
        ExecutingRegistry registry(false);
        QVERIFY(WriteSegment(HandWritten({Entry(QStringLiteral("theirs"), Self(), Self() + 1),
                                          Entry(QStringLiteral("mine"), Self(), Self())})));
        QCOMPARE(registry.Enumerate(false, false).size(), 2);
        const QList<ExecutingWorkflowRecord> mine = registry.Enumerate(true, false);
        QCOMPARE(mine.size(), 1);
        QCOMPARE(mine.at(0).WorkflowId, QStringLiteral("mine"));
    }

    void runOfThisProcessThroughTheManager()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        ImpOf(manager)->EnsureCatalogueLoaded();
        Workflow* workflow = NewWorkflow(QStringLiteral("Id_Managed"));
        WorkflowPrivate::AddWorkflow(workflow); // the catalogue owns it now
        QVERIFY(WorkflowPrivate::AddExecutingWorkflow(workflow, Self(), Self()));
        {
            std::unique_ptr<ExecutingWorkflowIterator> it(manager->GetExecutingWorkflows(true));
            QVERIFY(it->MoveNext());
            QCOMPARE(it->GetCurrent()->GetWorkflow(), workflow);
            QCOMPARE(it->GetCurrent()->GetHostProcessId(), Self());
            QVERIFY(!it->GetCurrent()->IsFinished());
            QVERIFY(!it->MoveNext());
        }
        // Status 0 reads as not finished: the run is still listed.
        QVERIFY(manager->SetExecutingWorkflowExitStatus(workflow, 0, Wide(QStringLiteral("zero"))));
        {
            std::unique_ptr<ExecutingWorkflowIterator> it(manager->GetExecutingWorkflows(true));
            QVERIFY(it->MoveNext());
            QVERIFY(!it->GetCurrent()->IsFinished());
            QCOMPARE(VmWorkflowTest::ReadText(
                         [&](WideChar* b, int s) { return it->GetCurrent()->GetErrorMessage(b, s); }),
                     QStringLiteral("zero"));
        }
        QVERIFY(manager->SetExecutingWorkflowExitStatus(workflow, 3, nullptr));
        {
            std::unique_ptr<ExecutingWorkflowIterator> it(manager->GetExecutingWorkflows(true));
            QVERIFY(!it->MoveNext());
        }
        QVERIFY(WorkflowPrivate::RemoveExecutingWorkflow(workflow));
        // The entry stays behind; only a later add from the same launcher replaces it.
        QCOMPARE(ImpOf(manager)->Registry()->ReadAll().size(), 1);
        QVERIFY(WorkflowPrivate::AddExecutingWorkflow(workflow, Self(), Self()));
        QCOMPARE(ImpOf(manager)->Registry()->ReadAll().size(), 1);
        QCOMPARE(ImpOf(manager)->Registry()->ReadAll().at(0).ExitStatus, 0);
    }

    void hostChangesAreSeenFromTheLauncher()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        ImpOf(manager)->EnsureCatalogueLoaded();
        Workflow* catalogued = NewWorkflow(QStringLiteral("Id_Hosted"));
        WorkflowPrivate::AddWorkflow(catalogued);
        HostProcess host;
        QVERIFY(host.Start());
        QCOMPARE(host.Command("add id_hosted " + QByteArray::number(Self())), QByteArray("ok"));
        const auto current = [&]() -> std::unique_ptr<ExecutingWorkflowIterator> {
            return std::unique_ptr<ExecutingWorkflowIterator>(manager->GetExecutingWorkflows(true));
        };
        {
            auto it = current();
            QVERIFY(it->MoveNext());
            ExecutingWorkflow* run = it->GetCurrent();
            QCOMPARE(run->GetHostProcessId(), host.Pid());
            QCOMPARE(run->GetLauncherProcessId(), Self());
            QCOMPARE(run->GetWorkflow(), catalogued);
            QCOMPARE(run->GetExecutingApplicationsCount(), 0);
            QVERIFY(!it->MoveNext());
        }
        QCOMPARE(host.Command("begin id_hosted 4242"), QByteArray("ok"));
        QCOMPARE(host.Command("begin id_hosted 4242"), QByteArray("ok"));
        QCOMPARE(host.Command("begin id_hosted 4343"), QByteArray("ok"));
        QCOMPARE(host.Command("end id_hosted 4242"), QByteArray("ok"));
        {
            auto it = current();
            QVERIFY(it->MoveNext());
            int ids[4] = {0, 0, 0, 0};
            QCOMPARE(it->GetCurrent()->GetExecutingApplications(ids, 4), 1);
            QCOMPARE(ids[0], 4343);
        }
        QCOMPARE(host.Command("status id_hosted 7 broke down"), QByteArray("ok"));
        QVERIFY(!current()->MoveNext());
        const QList<ExecutingWorkflowRecord> finished = ImpOf(manager)->Registry()->Enumerate(true, true);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).ExitStatus, 7);
        QCOMPARE(finished.at(0).ErrorMessage, QStringLiteral("broke down"));
        QCOMPARE(host.Command("remove id_hosted"), QByteArray("ok"));
        QCOMPARE(ImpOf(manager)->Registry()->ReadAll().size(), 1);
        // An unknown run cannot be changed.
        QCOMPARE(host.Command("status id_unknown 1 x"), QByteArray("fail"));
    }

    void killedHostEntriesAreSkippedOrShownFinished()
    {
        ExecutingRegistry registry(false);
        HostProcess host;
        QVERIFY(host.Start());
        const QByteArray launcher = QByteArray::number(Self());
        QCOMPARE(host.Command("add running " + launcher), QByteArray("ok"));
        QCOMPARE(host.Command("add ended " + launcher), QByteArray("ok"));
        QCOMPARE(host.Command("status ended 5 gave up"), QByteArray("ok"));
        QCOMPARE(registry.Enumerate(true, true).size(), 2);
        QCOMPARE(registry.Enumerate(true, false).size(), 1);
        host.Kill();
        host.Reap();
        QVERIFY(registry.Enumerate(true, false).isEmpty());
        const QList<ExecutingWorkflowRecord> finished = registry.Enumerate(true, true);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).WorkflowId, QStringLiteral("ended"));
        QCOMPARE(finished.at(0).ExitStatus, 5);
        QCOMPARE(registry.ReadAll().size(), 2);
    }

    void zombieHostCountsAsGone()
    {
        ExecutingRegistry registry(false);
        HostProcess host;
        QVERIFY(host.Start());
        QCOMPARE(host.Command("add undead " + QByteArray::number(Self())), QByteArray("ok"));
        QCOMPARE(registry.Enumerate(true, true).size(), 1);
        host.Kill();
        QTRY_COMPARE_WITH_TIMEOUT(ProcessState(host.Pid()), 'Z', 30000);
        QCOMPARE(::kill(host.Pid(), 0), 0); // the signal test alone would call it alive
        QVERIFY(!Platform::IsProcessAlive(host.Pid()));
        QVERIFY(registry.Enumerate(true, true).isEmpty());
        host.Reap();
    }

    void randomBytesGiveAnEmptyOrPartialList()
    {
        ExecutingRegistry registry(false);
        const QList<ExecutingWorkflowRecord> valid{Entry(QStringLiteral("a"), 1, 2),
                                                   Entry(QStringLiteral("b"), 3, 4, 1),
                                                   Entry(QStringLiteral("c"), 5, 6)};
        QRandomGenerator random(20261123);
        for (int round = 0; round < 200; ++round)
        {
            QByteArray bytes(kSize, '\0');
            random.fillRange(reinterpret_cast<quint32*>(bytes.data()), kSize / 4);
            const bool withPrefix = round % 2 == 1;
            if (withPrefix)
            {
                // Three sound entries, then garbage that the count claims is more of them.
                const QByteArray head = HandWritten(valid, 3 + int(random.bounded(600)));
                bytes.replace(0, head.size(), head);
            }
            QVERIFY(WriteSegment(bytes));
            const QList<ExecutingWorkflowRecord> read = registry.ReadAll();
            // No entry takes fewer than 40 bytes, so no list can be longer than this.
            QVERIFY(read.size() <= kSize / 40);
            if (withPrefix)
            {
                QVERIFY(read.size() >= 3);
                for (int i = 0; i < 3; ++i)
                    QVERIFY(Same(read.at(i), valid.at(i)));
            }
        }
    }

    void hugeCountEndsTheParse()
    {
        ExecutingRegistry registry(false);
        const QList<ExecutingWorkflowRecord> two{Entry(QStringLiteral("x"), 1, 2),
                                                 Entry(QStringLiteral("y"), 3, 4)};
        QByteArray bytes = HandWritten(two);
        bytes.replace(0, 4, QByteArray::fromHex("80000000")); // 2^31: read as a negative count
        QVERIFY(WriteSegment(bytes));
        QVERIFY(registry.ReadAll().isEmpty());
        // More entries than the bytes could hold: the header is damaged, nothing is trusted.
        bytes.replace(0, 4, QByteArray::fromHex("7fffffff"));
        QVERIFY(WriteSegment(bytes));
        QVERIFY(registry.ReadAll().isEmpty());
        bytes.replace(0, 4, QByteArray::fromHex("00000334")); // 820 entries of 40 bytes: one too many
        QVERIFY(WriteSegment(bytes));
        QVERIFY(registry.ReadAll().isEmpty());
        // A count that could fit, over entries that end early: the sound ones come back.
        bytes.replace(0, 4, QByteArray::fromHex("00000003"));
        bytes.append(QByteArray::fromHex("00010000"));
        QVERIFY(WriteSegment(bytes));
        const QList<ExecutingWorkflowRecord> read = registry.ReadAll();
        QCOMPARE(read.size(), 2);
        QVERIFY(Same(read.at(0), two.at(0)));
        QVERIFY(Same(read.at(1), two.at(1)));
    }

    void stringLengthPastTheEndEndsTheParse_data()
    {
        QTest::addColumn<QByteArray>("length");
        QTest::newRow("past the segment") << QByteArray::fromHex("00010000");
        QTest::newRow("2^31") << QByteArray::fromHex("80000000");
        QTest::newRow("just below null") << QByteArray::fromHex("fffffffe");
        QTest::newRow("odd byte count") << QByteArray::fromHex("00000003");
    }
    void stringLengthPastTheEndEndsTheParse()
    {
        QFETCH(QByteArray, length);
        ExecutingRegistry registry(false);
        const ExecutingWorkflowRecord first = Entry(QStringLiteral("first"), 1, 2);
        QByteArray bytes = HandWritten({first, Entry(QStringLiteral("second"), 3, 4)});
        const qsizetype secondAt = HandWritten({first}).size();
        bytes.replace(secondAt, 4, length);
        QVERIFY(WriteSegment(bytes));
        const QList<ExecutingWorkflowRecord> read = registry.ReadAll();
        QCOMPARE(read.size(), 1);
        QVERIFY(Same(read.at(0), first));
    }

    void applicationCountPastTheEndEndsTheParse()
    {
        ExecutingRegistry registry(false);
        ExecutingWorkflowRecord only = Entry(QStringLiteral("apps"), 1, 2);
        only.ExecutingApplications.clear();
        QByteArray bytes = HandWritten({only});
        // The application count sits after the two strings, two ids and the handle.
        const qsizetype countAt =
            4 + 4 + only.WorkflowId.size() * 2 + 4 + only.SourceFile.size() * 2 + 4 + 4 + 8;
        QCOMPARE(bytes.mid(countAt, 4), QByteArray::fromHex("00000000"));
        bytes.replace(countAt, 4, QByteArray::fromHex("40000000"));
        QVERIFY(WriteSegment(bytes));
        QVERIFY(registry.ReadAll().isEmpty());
        bytes.replace(countAt, 4, QByteArray::fromHex("ffffffff"));
        QVERIFY(WriteSegment(bytes));
        QVERIFY(registry.ReadAll().isEmpty());
    }

    void listOverTheSegmentSizeIsNotWritten()
    {
        ExecutingRegistry registry(true);
        const QString longPath = QStringLiteral("/w/") + QString(4000, QLatin1Char('p'));
        int added = 0;
        while (registry.Add(Own(NewWorkflow(QStringLiteral("big%1").arg(added), longPath)), Self(), Self()))
            ++added;
        // About 8 KB an entry: four fit in 32 KB, the fifth does not.
        QCOMPARE(added, 4);
        const QByteArray before = SegmentBytes();
        QVERIFY(!registry.Add(Own(NewWorkflow(QStringLiteral("again"), longPath)), Self(), Self()));
        QCOMPARE(SegmentBytes(), before);
        QCOMPARE(registry.ReadAll().size(), 4);
        // Small changes still fit.
        QVERIFY(registry.Add(Own(NewWorkflow(QStringLiteral("s"))), Self(), Self()));
        QCOMPARE(registry.ReadAll().size(), 5);
    }

    void nullAndUnknownWorkflowsAreRefused()
    {
        QVERIFY(WorkflowManager::Initialize());
        WorkflowManager* manager = WorkflowManager::GetInstance();
        QVERIFY(!WorkflowPrivate::AddExecutingWorkflow(nullptr, Self(), Self()));
        QVERIFY(!WorkflowPrivate::RemoveExecutingWorkflow(nullptr));
        QVERIFY(!manager->SetExecutingWorkflowExitStatus(nullptr, 1, Wide(QStringLiteral("x"))));
        manager->WorkflowExecutionBeginningInApplication(nullptr, 5);
        manager->WorkflowExecutionFinishedInApplication(nullptr, 5);
        Workflow* unknown = Own(NewWorkflow(QStringLiteral("Id_Unknown")));
        // Nothing registered yet: the list is empty.
        QVERIFY(!manager->SetExecutingWorkflowExitStatus(unknown, 1, Wide(QStringLiteral("x"))));
        QVERIFY(!WorkflowPrivate::RemoveExecutingWorkflow(unknown));
        Workflow* known = Own(NewWorkflow(QStringLiteral("Id_Known")));
        QVERIFY(WorkflowPrivate::AddExecutingWorkflow(known, Self(), Self()));
        QVERIFY(!manager->SetExecutingWorkflowExitStatus(unknown, 1, Wide(QStringLiteral("x"))));
        manager->WorkflowExecutionBeginningInApplication(unknown, 5);
        ExecutingRegistry* registry = ImpOf(manager)->Registry();
        QVERIFY(!registry->Add(nullptr, 1, 2));
        QVERIFY(!registry->AddExecutingApplication(unknown, 5));
        QVERIFY(!registry->RemoveExecutingApplication(nullptr, 5));
        const QList<ExecutingWorkflowRecord> entries = registry->ReadAll();
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.at(0).WorkflowId, QStringLiteral("Id_Known"));
        QVERIFY(entries.at(0).ExecutingApplications.isEmpty());
        QCOMPARE(entries.at(0).ExitStatus, 0);
    }

    void foreignSegmentFileIsRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("too small") << QStringLiteral("small");
        QTest::newRow("too large") << QStringLiteral("large");
        QTest::newRow("pipe") << QStringLiteral("fifo");
        QTest::newRow("link to a segment-sized file") << QStringLiteral("link");
        QTest::newRow("folder") << QStringLiteral("folder");
    }
    void foreignSegmentFileIsRefused()
    {
        QFETCH(QString, kind);
        const QByteArray path = QFile::encodeName(SegmentPath());
        const QString elsewhere = m_runtime->path() + QStringLiteral("/elsewhere");
        QByteArray image = HandWritten({Entry(QStringLiteral("planted"), Self(), Self())});
        image.append(QByteArray(kSize - image.size(), '\0'));
        if (kind == QLatin1String("small") || kind == QLatin1String("large"))
        {
            QFile file(SegmentPath());
            QVERIFY(file.open(QIODevice::WriteOnly));
            QVERIFY(file.write(kind == QLatin1String("small") ? image.left(100) : image + image) > 0);
        }
        else if (kind == QLatin1String("fifo"))
        {
            QCOMPARE(::mkfifo(path.constData(), 0600), 0);
        }
        else if (kind == QLatin1String("link"))
        {
            QFile file(elsewhere);
            QVERIFY(file.open(QIODevice::WriteOnly));
            QCOMPARE(file.write(image), qint64(kSize));
            file.close();
            QCOMPARE(::symlink(QFile::encodeName(elsewhere).constData(), path.constData()), 0);
        }
        else
        {
            QVERIFY(QDir().mkdir(SegmentPath()));
        }
        for (bool host : {false, true})
        {
            ExecutingRegistry registry(host);
            QVERIFY(registry.ReadAll().isEmpty());
            QVERIFY(registry.Enumerate(false, true).isEmpty());
            QVERIFY(!registry.Add(Own(NewWorkflow(QStringLiteral("refused"))), Self(), Self()));
        }
        if (kind == QLatin1String("small"))
            QCOMPARE(QFileInfo(SegmentPath()).size(), qint64(100));
        if (kind == QLatin1String("link"))
        {
            QFile file(elsewhere);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(file.readAll(), image);
        }
    }

    void concurrentHostsLoseNoChange()
    {
        constexpr int kHosts = 8;
        constexpr int kSlots = 10;
        constexpr int kRuns = 100;
        ExecutingRegistry registry(false);
        std::vector<std::unique_ptr<HostProcess>> hosts;
        for (int i = 0; i < kHosts; ++i)
        {
            hosts.push_back(std::make_unique<HostProcess>());
            QVERIFY(hosts.back()->Start());
        }
        for (int i = 0; i < kHosts; ++i)
            QVERIFY(hosts[i]->Send(QByteArray("stress c") + QByteArray::number(i) + ' ' +
                                   QByteArray::number(kSlots) + ' ' + QByteArray::number(kRuns)));
        for (int i = 0; i < kHosts; ++i)
            QCOMPARE(hosts[i]->ReadLine(240000), QByteArray("done 0"));
        const QList<ExecutingWorkflowRecord> entries = registry.ReadAll();
        QCOMPARE(entries.size(), kHosts * kSlots);
        for (int i = 0; i < kHosts; ++i)
        {
            for (int slot = 0; slot < kSlots; ++slot)
            {
                const QString id = QStringLiteral("c%1-%2").arg(i).arg(slot);
                const int lastRun = kRuns - kSlots + slot;
                int found = 0;
                for (const ExecutingWorkflowRecord& e : entries)
                {
                    if (e.WorkflowId != id)
                        continue;
                    ++found;
                    QCOMPARE(e.LauncherProcessId, hosts[i]->Pid());
                    QCOMPARE(e.HostProcessId, hosts[i]->Pid());
                    QCOMPARE(e.ExitStatus, lastRun + 1);
                    QCOMPARE(e.ErrorMessage, QStringLiteral("run %1").arg(lastRun));
                    QCOMPARE(e.ExecutingApplications, QList<int>({1000 + lastRun}));
                }
                QCOMPARE(found, 1);
            }
        }
    }

    void otherUserCannotReachTheSegment()
    {
        if (::geteuid() != 0)
            QSKIP("Only root can run the helper under another user id here.");
        const passwd* nobody = ::getpwnam("nobody");
        if (!nobody)
            QSKIP("There is no user 'nobody' on this machine.");
        const uid_t uid = nobody->pw_uid;
        const gid_t gid = nobody->pw_gid;
        ExecutingRegistry registry(true);
        QVERIFY(registry.Add(Own(NewWorkflow(QStringLiteral("Id_Private"))), Self(), Self()));
        QCOMPARE(registry.ReadAll().size(), 1);
        QProcess probe;
        probe.setChildProcessModifier([uid, gid]() {
            if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
                ::_exit(99);
        });
        probe.start(QStringLiteral(REGISTRY_HOST_PATH), {QStringLiteral("--probe"), SegmentPath()});
        if (!probe.waitForStarted(30000))
            QSKIP("The helper cannot be started as user 'nobody' from this build folder.");
        QVERIFY(probe.waitForFinished(60000));
        QCOMPARE(probe.exitCode(), 0);
        const QByteArray answer = probe.readAllStandardOutput().trimmed();
        QCOMPARE(answer, QByteArray("entries 0 open ") + QByteArray::number(EACCES));
        // And the owner still sees its run untouched.
        QCOMPARE(registry.ReadAll().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_ExecutingRegistry)
#include "tst_executingregistry.moc"
