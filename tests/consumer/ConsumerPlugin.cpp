// SPDX-License-Identifier: MIT
// A workflow plug-in built outside the project against the installed plug-in SDK. Its executor
// writes the workflow's id and name and the process it ran in to the file named by the launch
// argument "ConsumerResultFile", and ends with the status named by "ConsumerExitStatus" (0 when
// absent).

#include <VmWorkflowCore/WideText.h>
#include <VmWorkflowCore/WorkflowPlugin.h>

#include <QCoreApplication>
#include <QFile>
#include <QString>

#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

QString Argument(WorkflowArguments* arguments, const QString& key)
{
    const WideText wideKey(key);
    return ReadWideText(
        [&](WideChar* buffer, int size) { return arguments->GetValue(wideKey, buffer, size); });
}

class ConsumerExecutor : public WorkflowExecutor
{
public:
    int ExecuteWorkflow(Workflow* workflow, WorkflowArguments* arguments) override
    {
        if (!workflow || !arguments)
        {
            m_message = QStringLiteral("nothing to run");
            return 1;
        }
        QFile result(Argument(arguments, QStringLiteral("ConsumerResultFile")));
        if (!result.open(QIODevice::WriteOnly | QIODevice::Truncate))
        {
            m_message = QStringLiteral("cannot write the result file");
            return 2;
        }
        const QString id =
            ReadWideText([workflow](WideChar* buffer, int size) { return workflow->GetId(buffer, size); });
        const QString name =
            ReadWideText([workflow](WideChar* buffer, int size) { return workflow->GetName(buffer, size); });
        const QString text =
            QStringLiteral("Id %1\nName %2\nHost %3\n").arg(id, name, QCoreApplication::applicationName());
        result.write(text.toUtf8());
        result.close();
        m_message.clear();
        return Argument(arguments, QStringLiteral("ConsumerExitStatus")).toInt();
    }

    int GetExitMessage(WideChar* buffer, int size) override
    {
        if (!buffer)
            return int(m_message.size());
        if (size < 1)
            return 0;
        const int count = qMin(size - 1, int(m_message.size()));
        for (int i = 0; i < count; ++i)
            buffer[i] = static_cast<WideChar>(m_message.at(i).unicode());
        buffer[count] = 0;
        return count;
    }

private:
    QString m_message;
};

class ConsumerPlugin : public WorkflowPlugin
{
public:
    WorkflowExecutor* GetWorkflowExecuteHandler() override { return &m_executor; }
    WorkflowEditorHandler* GetWorkflowEditorHandler() override { return nullptr; }
    WorkflowLaunchHandler* GetWorkflowLaunchHandler() override { return nullptr; }

private:
    ConsumerExecutor m_executor;
};

} // namespace

VMWORKFLOW_DECLARE_PLUGIN(ConsumerPlugin)
