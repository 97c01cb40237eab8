// SPDX-License-Identifier: MIT
// A host application for the registry tests. Its file is named VmWorkflowHost, so the library
// takes it for the host. It reads one command a line on stdin and answers one line on stdout:
//   add <id> <launcher pid>          registers a run of the workflow <id>      -> ok | fail
//   status <id> <status> [message]   records the exit status                    -> ok | fail
//   begin <id> <pid> / end <id> <pid>  an application joins or leaves the run    -> ok
//   remove <id>                      the run ends                               -> ok | fail
//   stress <tag> <slots> <runs>      <runs> runs over <slots> workflows of its own, each added,
//                                    joined by one application and finished    -> done <failures>
//   quit
// "ready" is printed once the manager is up. With "--probe <segment file>" it only reports
// what it can see of the registry and of that file, as "entries <n> open <errno>", and exits.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingRegistry.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QFile>
#include <QMap>
#include <QTextStream>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <memory>
#include <unistd.h>

using namespace Velmora::WorkflowCore;

namespace {

std::map<QString, std::unique_ptr<Workflow>> s_workflows;

Workflow* WorkflowFor(const QString& id)
{
    std::unique_ptr<Workflow>& slot = s_workflows[id];
    if (!slot)
    {
        slot = std::make_unique<Workflow>();
        ImpOf(slot.get())->Fields().Id = id;
        ImpOf(slot.get())->Fields().SourceFile = QStringLiteral("/workflows/%1.workflow").arg(id);
    }
    return slot.get();
}

void Answer(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

const WideChar* W(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

int Probe(const QString& segmentFile)
{
    ExecutingRegistry registry(false);
    const int entries = static_cast<int>(registry.ReadAll().size());
    const int fd = ::open(QFile::encodeName(segmentFile).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const int error = fd < 0 ? errno : 0;
    if (fd >= 0)
        ::close(fd);
    std::printf("entries %d open %d\n", entries, error);
    std::fflush(stdout);
    return 0;
}

int Stress(const QString& tag, int slotCount, int runs)
{
    WorkflowManager* manager = WorkflowManager::GetInstance();
    const int self = static_cast<int>(::getpid());
    int failures = 0;
    for (int run = 0; run < runs; ++run)
    {
        Workflow* workflow = WorkflowFor(QStringLiteral("%1-%2").arg(tag).arg(run % slotCount));
        if (!WorkflowPrivate::AddExecutingWorkflow(workflow, self, self))
            ++failures;
        manager->WorkflowExecutionBeginningInApplication(workflow, 1000 + run);
        const QString message = QStringLiteral("run %1").arg(run);
        if (!manager->SetExecutingWorkflowExitStatus(workflow, run + 1, W(message)))
            ++failures;
    }
    return failures;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 3 && arguments.at(1) == QLatin1String("--probe"))
        return Probe(arguments.at(2));

    WorkflowManager::Initialize();
    WorkflowManager* manager = WorkflowManager::GetInstance();
    Answer("ready");
    QTextStream input(stdin);
    QString line;
    while (input.readLineInto(&line))
    {
        const QStringList words = line.split(QLatin1Char(' '));
        const QString& command = words.value(0);
        if (command == QLatin1String("quit"))
            break;
        if (command == QLatin1String("add") && words.size() == 3)
        {
            const bool added = WorkflowPrivate::AddExecutingWorkflow(
                WorkflowFor(words.at(1)), static_cast<int>(::getpid()), words.at(2).toInt());
            Answer(added ? "ok" : "fail");
        }
        else if (command == QLatin1String("status") && words.size() >= 3)
        {
            const QString message = words.mid(3).join(QLatin1Char(' '));
            const bool set = manager->SetExecutingWorkflowExitStatus(WorkflowFor(words.at(1)),
                                                                     words.at(2).toInt(), W(message));
            Answer(set ? "ok" : "fail");
        }
        else if (command == QLatin1String("begin") && words.size() == 3)
        {
            manager->WorkflowExecutionBeginningInApplication(WorkflowFor(words.at(1)), words.at(2).toInt());
            Answer("ok");
        }
        else if (command == QLatin1String("end") && words.size() == 3)
        {
            manager->WorkflowExecutionFinishedInApplication(WorkflowFor(words.at(1)), words.at(2).toInt());
            Answer("ok");
        }
        else if (command == QLatin1String("remove") && words.size() == 2)
        {
            Answer(WorkflowPrivate::RemoveExecutingWorkflow(WorkflowFor(words.at(1))) ? "ok" : "fail");
        }
        else if (command == QLatin1String("stress") && words.size() == 4)
        {
            const int failures = Stress(words.at(1), words.at(2).toInt(), words.at(3).toInt());
            Answer(QByteArray("done " + QByteArray::number(failures)).constData());
        }
        else
        {
            Answer("unknown");
        }
    }
    s_workflows.clear();
    WorkflowManager::Uninitialize();
    return 0;
}
