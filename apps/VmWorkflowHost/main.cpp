// SPDX-License-Identifier: MIT
// The host application: runs one workflow that a launcher handed over on the command line.
//
//     VmWorkflowHost <temporary file>[?<workflow id>] [/Key=Value ...]
//
// It waits for the launcher to link (so that the launcher hears the run begin and end), registers
// the run, lets the workflow's plug-in carry it out and leaves the outcome in the registry of
// executing workflows. Its exit status is the run's.

#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPlugin.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QStringList>
#include <QTimer>

#include <cstdio>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

// Exit statuses of runs the host could not start; a plug-in's own statuses pass through.
enum HostFailure
{
    BadCommandLine = 2,
    UnreadableWorkflow = 3,
    MissingPlugin = 4
};

const int kLinkWaitMs = 10000;

std::vector<WideChar> Wide(const QString& text)
{
    std::vector<WideChar> buffer(static_cast<size_t>(text.size()) + 1, 0);
    for (int i = 0; i < text.size(); ++i)
        buffer[static_cast<size_t>(i)] = static_cast<WideChar>(text.at(i).unicode());
    return buffer;
}

QString FromWide(const WideChar* text)
{
    QString result;
    for (; text && *text; ++text)
        result.append(QChar(static_cast<char16_t>(*text)));
    return result;
}

int Fail(int status, const QString& sentence)
{
    std::fprintf(stderr, "VmWorkflowHost: %s\n", sentence.toLocal8Bit().constData());
    return status;
}

struct CommandLine
{
    QString file;
    QString id;
    QMap<QString, QString> values;
    QString problem;
};

// "/Key=Value" with a key that holds no "/": an absolute file path is never taken for one.
bool IsKeyValue(const QString& argument)
{
    const int equals = argument.indexOf(QLatin1Char('='));
    return argument.startsWith(QLatin1Char('/')) && equals >= 2 &&
           !argument.mid(1, equals - 1).contains(QLatin1Char('/'));
}

CommandLine ParseCommandLine(const QStringList& arguments)
{
    CommandLine line;
    if (arguments.isEmpty() || arguments.first().isEmpty() || IsKeyValue(arguments.first()))
    {
        line.problem = QStringLiteral("the command line names no workflow file.");
        return line;
    }
    // A workflow name may hold a "?", so a first argument that names a file as a whole is a file
    // without an id.
    const QString& first = arguments.first();
    const int question = first.lastIndexOf(QLatin1Char('?'));
    if (QFileInfo::exists(first) || question < 0)
    {
        line.file = first;
    }
    else
    {
        line.file = first.left(question);
        line.id = first.mid(question + 1);
    }
    for (int i = 1; i < arguments.size(); ++i)
    {
        const QString& argument = arguments.at(i);
        if (!IsKeyValue(argument))
        {
            line.problem = QStringLiteral("the argument \"%1\" is not of the form /Key=Value.").arg(argument);
            return line;
        }
        const int equals = argument.indexOf(QLatin1Char('='));
        line.values.insert(argument.mid(1, equals - 1), argument.mid(equals + 1));
    }
    return line;
}

// The test mode: the exact command line as received, one argument a line, written whole under
// another name first so that a reader never sees half of it.
void EchoArguments(const QStringList& arguments)
{
    const QString target = qEnvironmentVariable("VMWORKFLOWHOST_ECHO_ARGUMENTS");
    if (target.isEmpty())
        return;
    QFile file(target + QStringLiteral(".part"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    for (const QString& argument : arguments)
    {
        file.write(argument.toUtf8());
        file.write("\n");
    }
    file.close();
    QFile::remove(target);
    QFile::rename(file.fileName(), target);
}

// Waits for the launcher's link so that it hears the run's announcements.
class LauncherLink : public LinkStateListener
{
public:
    explicit LauncherLink(int processId) : m_processId(processId) {}

    void OnLinkStarted() override
    {
        m_linked = true;
        m_loop.quit();
    }
    int GetProcessId() override { return m_processId; }

    void Wait()
    {
        if (m_linked || m_processId <= 0)
            return;
        QTimer::singleShot(kLinkWaitMs, &m_loop, &QEventLoop::quit);
        m_loop.exec();
    }

private:
    int m_processId;
    bool m_linked = false;
    QEventLoop m_loop;
};

constexpr int kLingerAfterEndMs = 750;

// Leaves the outcome in the registry, announces the end and closes the run.
void FinishRun(WorkflowManager* manager, Workflow* workflow, int status, const QString& message)
{
    const int self = static_cast<int>(QCoreApplication::applicationPid());
    manager->SetExecutingWorkflowExitStatus(workflow, status, Wide(message).data());
    manager->WorkflowExecutionFinishedInApplication(workflow, self);
    WorkflowPrivate::RemoveExecutingWorkflow(workflow);
    // The launcher looks the run up in the registry when the end reaches it, and an entry whose
    // host has gone with status 0 no longer counts: stay a moment so that it still finds us.
    QEventLoop linger;
    QTimer::singleShot(kLingerAfterEndMs, &linger, &QEventLoop::quit);
    linger.exec();
}

int Run(const CommandLine& line)
{
    WorkflowManager* manager = WorkflowManager::GetInstance();
    manager->SetCurrentLocale(Wide(line.values.value(QStringLiteral("Locale"))).data());
    manager->SetWorkflowPluginSearchPaths(
        Wide(line.values.value(QStringLiteral("PluginSearchPaths"))).data());
    manager->SetWorkflowSearchPaths(Wide(line.values.value(QStringLiteral("WorkflowSearchPath"))).data());

    const QFileInfo fileInfo(line.file);
    if (!fileInfo.isFile() || !fileInfo.isReadable())
        return Fail(UnreadableWorkflow,
                    QStringLiteral("the workflow file \"%1\" cannot be read.").arg(line.file));
    Workflow workflow;
    if (!workflow.Load(Wide(line.file).data(), Wide(line.id).data()))
    {
        if (line.id.isEmpty())
            return Fail(UnreadableWorkflow,
                        QStringLiteral("the file \"%1\" holds no workflow.").arg(line.file));
        return Fail(
            UnreadableWorkflow,
            QStringLiteral("the file \"%1\" holds no workflow with the id \"%2\".").arg(line.file, line.id));
    }

    const int launcher = line.values.value(QStringLiteral("ParentProcessId")).toInt();
    LauncherLink link(launcher);
    WorkflowPrivate::AddLinkStateListener(&link);
    link.Wait();

    const int self = static_cast<int>(QCoreApplication::applicationPid());
    WorkflowPrivate::AddExecutingWorkflow(&workflow, self, launcher);
    manager->WorkflowExecutionBeginningInApplication(&workflow, self);

    int status = 0;
    WorkflowExecutor* executor = WorkflowPrivate::GetWorkflowExecuteHandler(&workflow);
    if (!executor)
    {
        const QString sentence =
            QStringLiteral("the plug-in of the workflow cannot be loaded or cannot run it.");
        FinishRun(manager, &workflow, MissingPlugin, sentence);
        WorkflowPrivate::RemoveLinkStateListener(&link);
        return Fail(MissingPlugin, sentence);
    }

    WorkflowArguments arguments;
    for (auto it = line.values.cbegin(); it != line.values.cend(); ++it)
        arguments.SetValue(Wide(it.key()).data(), Wide(it.value()).data());
    status = executor->ExecuteWorkflow(&workflow, &arguments);
    std::vector<WideChar> message(static_cast<size_t>(qMax(0, executor->GetExitMessage(nullptr, 0))) + 1, 0);
    executor->GetExitMessage(message.data(), static_cast<int>(message.size()));

    FinishRun(manager, &workflow, status, FromWide(message.data()));
    WorkflowPrivate::RemoveLinkStateListener(&link);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    EchoArguments(arguments);

    const CommandLine line = ParseCommandLine(arguments);
    if (!line.problem.isEmpty())
        return Fail(BadCommandLine, line.problem);

    WorkflowManager::Initialize();
    const int status = Run(line);
    // Uninitialising the hub delivers the messages still queued for the launcher.
    WorkflowManager::Uninitialize();
    return status;
}
