// SPDX-License-Identifier: MIT
// The sample workflow plug-in. It carries out the "Step" elements of a workflow's settings in a
// way anyone can watch: every step it carries out becomes one line of a result file. README.md
// beside this file describes the steps and the launch arguments it understands.

#include <VmWorkflowCore/WorkflowPlugin.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QString>
#include <QThread>
#include <QXmlStreamReader>

#include <algorithm>
#include <climits>
#include <vector>

namespace {

using Velmora::WorkflowCore::WideChar;
using Velmora::WorkflowCore::Workflow;
using Velmora::WorkflowCore::WorkflowArguments;

// Launch arguments.
const QString kResultFile = QStringLiteral("ResultFile");
const QString kDelayMs = QStringLiteral("DelayMs");
const QString kExitStatus = QStringLiteral("ExitStatus");
const QString kExitMessage = QStringLiteral("ExitMessage");
const QString kPrepared = QStringLiteral("SamplePluginPrepared");

// A wait, in a step or after the steps, never keeps the host longer than this.
constexpr int kLongestWaitMs = 60000;

// Exit statuses of the plug-in's own failures.
constexpr int kNoWorkflowStatus = 1;
constexpr int kUnreadableSettingsStatus = 2;
constexpr int kResultFileStatus = 3;
constexpr int kStepFailedStatus = 4;

const WideChar* Wide(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

// Reads a whole text through one of the library's text-out getters.
template <typename Getter> QString ReadText(Getter get)
{
    const int length = get(nullptr, 0);
    if (length <= 0)
        return QString();
    std::vector<WideChar> buffer(static_cast<size_t>(length) + 1);
    const int copied = get(buffer.data(), length + 1);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()), copied);
}

QString Argument(WorkflowArguments* arguments, const QString& key)
{
    if (!arguments)
        return QString();
    return ReadText([&](WideChar* buffer, int size) { return arguments->GetValue(Wide(key), buffer, size); });
}

int Milliseconds(const QString& text)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    return ok ? std::clamp(value, 0, kLongestWaitMs) : 0;
}

struct Step
{
    int order = INT_MAX; // steps without an Order come last
    QString label;       // the Order as written, or "-" when there is none
    QString action;
    QXmlStreamAttributes attributes;
};

// The Step elements directly inside the settings, in the order they are carried out. False when
// the markup does not parse.
bool ReadSteps(const QString& settings, QList<Step>& steps, QString& error)
{
    QXmlStreamReader reader(QStringLiteral("<Settings>") + settings + QStringLiteral("</Settings>"));
    int depth = 0;
    while (!reader.atEnd())
    {
        reader.readNext();
        if (reader.isStartElement())
        {
            ++depth;
            if (depth != 2 || reader.name() != QLatin1String("Step"))
                continue;
            Step step;
            step.attributes = reader.attributes();
            step.action = step.attributes.value(QLatin1String("Action")).toString();
            const QString order = step.attributes.value(QLatin1String("Order")).toString().trimmed();
            bool ok = false;
            const int number = order.toInt(&ok);
            if (ok)
                step.order = number;
            step.label = ok ? order : QStringLiteral("-");
            steps.append(step);
        }
        else if (reader.isEndElement())
        {
            --depth;
        }
    }
    if (reader.hasError())
    {
        error = reader.errorString();
        return false;
    }
    std::stable_sort(steps.begin(), steps.end(),
                     [](const Step& a, const Step& b) { return a.order < b.order; });
    return true;
}

// The record of one run. Without a result file the run still happens; nothing is written.
class ResultFile
{
public:
    bool Open(const QString& path)
    {
        if (path.isEmpty())
            return true;
        m_file.setFileName(path);
        return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    }
    QString Folder() const
    {
        return m_file.isOpen() ? QFileInfo(m_file.fileName()).absolutePath() : QDir::currentPath();
    }
    void Line(const QString& text)
    {
        if (!m_file.isOpen())
            return;
        // Each line reaches the disk at once so that someone watching sees the run advance.
        m_file.write((text + QLatin1Char('\n')).toUtf8());
        m_file.flush();
    }

private:
    QFile m_file;
};

bool AppendLine(const QString& path, const QString& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    const QByteArray line = (text + QLatin1Char('\n')).toUtf8();
    return file.write(line) == line.size();
}

class SampleExecutor : public Velmora::WorkflowCore::WorkflowExecutor
{
public:
    int ExecuteWorkflow(Workflow* workflow, WorkflowArguments* arguments) override
    {
        m_message.clear();
        if (!workflow)
            return Finish(kNoWorkflowStatus, QStringLiteral("No workflow was given to run."));

        ResultFile result;
        const QString resultPath = Argument(arguments, kResultFile);
        if (!result.Open(resultPath))
            return Finish(kResultFileStatus,
                          QStringLiteral("The result file %1 cannot be written.").arg(resultPath));
        result.Line(QStringLiteral("Workflow ") +
                    ReadText([&](WideChar* b, int s) { return workflow->GetId(b, s); }));
        result.Line(QStringLiteral("Name ") +
                    ReadText([&](WideChar* b, int s) { return workflow->GetName(b, s); }));
        const QString prepared = Argument(arguments, kPrepared);
        if (!prepared.isEmpty())
            result.Line(QStringLiteral("Prepared ") + prepared);

        const int status = RunSteps(workflow, result);

        QThread::msleep(static_cast<unsigned long>(Milliseconds(Argument(arguments, kDelayMs))));
        if (status != 0)
            return Finish(status, m_message, &result);
        bool ok = false;
        const int asked = Argument(arguments, kExitStatus).trimmed().toInt(&ok);
        QString message = Argument(arguments, kExitMessage);
        if (ok && asked != 0 && message.isEmpty())
            message = QStringLiteral("The run was asked to end with status %1.").arg(asked);
        return Finish(ok ? asked : 0, message, &result);
    }

    int GetExitMessage(WideChar* buffer, int size) override
    {
        const int length = static_cast<int>(m_message.size());
        if (!buffer)
            return length;
        if (size < 1)
            return 0;
        const int copied = std::min(length, size - 1);
        std::copy_n(reinterpret_cast<const WideChar*>(m_message.utf16()), copied, buffer);
        buffer[copied] = WideChar(0);
        return copied;
    }

private:
    // Carries out the steps in order; returns 0, or the status that ended the run early (its
    // message is then in m_message).
    int RunSteps(Workflow* workflow, ResultFile& result)
    {
        const QString settings = ReadText([&](WideChar* b, int s) { return workflow->GetSettings(b, s); });
        QList<Step> steps;
        QString error;
        if (!ReadSteps(settings, steps, error))
        {
            m_message = QStringLiteral("The workflow's settings cannot be read: %1").arg(error);
            return kUnreadableSettingsStatus;
        }
        for (const Step& step : std::as_const(steps))
        {
            result.Line(QStringLiteral("Step %1 %2").arg(step.label, step.action));
            if (step.action == QLatin1String("Wait"))
            {
                QThread::msleep(static_cast<unsigned long>(
                    Milliseconds(step.attributes.value(QLatin1String("Ms")).toString())));
            }
            else if (step.action == QLatin1String("Append"))
            {
                const QString file = step.attributes.value(QLatin1String("File")).toString();
                const QString text = step.attributes.value(QLatin1String("Text")).toString();
                const QString path = QDir(result.Folder()).absoluteFilePath(file);
                if (file.isEmpty() || !AppendLine(path, text))
                {
                    m_message = QStringLiteral("Step %1 cannot append to %2.").arg(step.label, path);
                    return kStepFailedStatus;
                }
            }
            else if (step.action == QLatin1String("Fail"))
            {
                bool ok = false;
                int status = step.attributes.value(QLatin1String("Status")).toString().trimmed().toInt(&ok);
                if (!ok || status == 0)
                    status = kStepFailedStatus;
                m_message = step.attributes.value(QLatin1String("Message")).toString();
                if (m_message.isEmpty())
                    m_message = QStringLiteral("Step %1 ended the run.").arg(step.label);
                return status;
            }
        }
        return 0;
    }

    int Finish(int status, const QString& message, ResultFile* result = nullptr)
    {
        m_message = message;
        if (result)
            result->Line(message.isEmpty()
                             ? QStringLiteral("Exit %1").arg(status)
                             : QStringLiteral("Exit %1 %2").arg(QString::number(status), message));
        return status;
    }

    QString m_message;
};

class SampleLaunchHandler : public Velmora::WorkflowCore::WorkflowLaunchHandler
{
public:
    bool PrepareLaunch(Workflow* workflow, WorkflowArguments* arguments) override
    {
        Q_UNUSED(workflow);
        if (arguments)
            arguments->SetValue(Wide(kPrepared), Wide(QStringLiteral("True")));
        return true;
    }
};

class SamplePlugin : public Velmora::WorkflowCore::WorkflowPlugin
{
public:
    Velmora::WorkflowCore::WorkflowExecutor* GetWorkflowExecuteHandler() override { return &m_executor; }
    // The sample has no editor pages of its own.
    Velmora::WorkflowCore::WorkflowEditorHandler* GetWorkflowEditorHandler() override { return nullptr; }
    Velmora::WorkflowCore::WorkflowLaunchHandler* GetWorkflowLaunchHandler() override
    {
        return &m_launchHandler;
    }

private:
    SampleExecutor m_executor;
    SampleLaunchHandler m_launchHandler;
};

} // namespace

VMWORKFLOW_DECLARE_PLUGIN(SamplePlugin)
