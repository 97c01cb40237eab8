// SPDX-License-Identifier: MIT
// A workflow plug-in built outside the project against the installed plug-in SDK. Its executor
// writes the workflow's id and name and the process it ran in to the file named by the launch
// argument "ConsumerResultFile", and ends with the status named by "ConsumerExitStatus" (0 when
// absent).

#include <VmWorkflowCore/WorkflowPlugin.h>

#include <QCoreApplication>
#include <QFile>
#include <QString>

#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

std::vector<WideChar> Wide(const QString& text)
{
    std::vector<WideChar> buffer(static_cast<size_t>(text.size()) + 1, 0);
    for (int i = 0; i < text.size(); ++i)
        buffer[static_cast<size_t>(i)] = static_cast<WideChar>(text.at(i).unicode());
    return buffer;
}

template <typename Getter> QString Read(Getter get)
{
    const int length = get(nullptr, 0);
    if (length <= 0)
        return QString();
    std::vector<WideChar> buffer(static_cast<size_t>(length) + 1, 0);
    const int copied = get(buffer.data(), length + 1);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()), copied);
}

QString Argument(WorkflowArguments* arguments, const QString& key)
{
    const std::vector<WideChar> wideKey = Wide(key);
    return Read([&](WideChar* buffer, int size) { return arguments->GetValue(wideKey.data(), buffer, size); });
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
        const QString id = Read([workflow](WideChar* buffer, int size) { return workflow->GetId(buffer, size); });
        const QString name = Read([workflow](WideChar* buffer, int size) { return workflow->GetName(buffer, size); });
        const QString text = QStringLiteral("Id %1\nName %2\nHost %3\n")
                                 .arg(id, name, QCoreApplication::applicationName());
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
