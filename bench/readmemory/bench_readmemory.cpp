// SPDX-License-Identifier: MIT
// Peak memory of reading large files, against the size of the file.
//
// Generates, in a temporary folder, a valid .workflow file of about 50 MB (many workflows with
// their attributes and a settings body each) and a per-user settings file of about 17 MB, then
// reads each in a fresh process of this program (the workflow file twice: the catalogue scan,
// then the load of one workflow by id) and prints the file size, the peak resident memory
// (VmHWM of /proc/self/status) and the ratio of the two.
// Usage: bench_readmemory [megabytes of the workflow file, default 50]

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

using namespace Velmora::WorkflowCore;

namespace {

long PeakResidentKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
    {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

QByteArray WorkflowElement(int i)
{
    const QByteArray n = QByteArray::number(i);
    QByteArray settings;
    for (int k = 0; k < 20; ++k)
        settings += "<Step Name=\"step " + QByteArray::number(k) + "\" Kind=\"collect\" Order=\"" +
                    QByteArray::number(k) +
                    "\"><Argument Key=\"k\" Value=\"some value of the step\"/></Step>";
    return "<Workflow Id=\"Id_" + n + "\" Name=\"Workflow " + n +
           "\" IsTemplate=\"False\" TemplateId=\"Id_0\" "
           "Description=\"A workflow that does many things in order\" Tooltip=\"tr(Tooltip)\" Keywords=\"a b "
           "c\" "
           "CreatedDate=\"2015-10-01T09:00:00\" TemplateImage=\"a16.png|a32.png\"><Settings>" +
           settings + "</Settings></Workflow>\n";
}

int Measure(const QString& kind, const QString& path)
{
    if (!WorkflowManager::Initialize())
        return 1;
    const long before = PeakResidentKilobytes();
    QElapsedTimer timer;
    timer.start();
    if (kind == QLatin1String("workflow"))
    {
        const QString folder = QFileInfo(path).absolutePath();
        const std::u16string text = folder.toStdU16String();
        WorkflowManager::GetInstance()->SetWorkflowSearchPaths(
            reinterpret_cast<const WideChar*>(text.c_str()));
        std::printf("  workflows read: %lld\n",
                    static_cast<long long>(ImpOf(WorkflowManager::GetInstance())->Catalogue().size()));
    }
    else if (kind == QLatin1String("load"))
    {
        // One workflow near the end of the big file, by id, as Workflow::Load reads it.
        auto* workflow = new Workflow;
        const std::u16string file = path.toStdU16String();
        const std::u16string id = QStringLiteral("Id_20000").toStdU16String();
        const bool loaded = workflow->Load(reinterpret_cast<const WideChar*>(file.c_str()),
                                           reinterpret_cast<const WideChar*>(id.c_str()));
        std::printf("  workflow loaded: %s\n", loaded ? "yes" : "no");
        delete workflow;
    }
    else
    {
        const QString value = WorkflowSettingsStore().Read(QStringLiteral("Id_1"), QStringLiteral("Key"));
        std::printf("  setting read: %s\n", qPrintable(value));
    }
    const qint64 ms = timer.elapsed();
    const long peak = PeakResidentKilobytes();
    const double size = double(QFileInfo(path).size()) / 1024.0;
    std::printf("  file %.1f MB, peak RSS %.1f MB (%.1f MB before reading), %.1fx the file, %lld ms\n",
                size / 1024.0, peak / 1024.0, before / 1024.0, (peak - before) / size,
                static_cast<long long>(ms));
    WorkflowManager::Uninitialize();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() == 4 && arguments.at(1) == QLatin1String("--measure"))
        return Measure(arguments.at(2), arguments.at(3));

    const int megabytes = arguments.size() > 1 ? arguments.at(1).toInt() : 50;
    QTemporaryDir root;
    const QString data = root.filePath(QStringLiteral("data"));
    QDir().mkpath(root.filePath(QStringLiteral("workflows")));
    QDir().mkpath(data + QStringLiteral("/Velmora/WorkflowSettings"));

    const QString workflowFile = root.filePath(QStringLiteral("workflows/Big.workflow"));
    {
        QFile file(workflowFile);
        file.open(QIODevice::WriteOnly);
        file.write("<?xml version=\"1.0\"?>\n<Workflows>\n");
        for (int i = 0; file.size() < qint64(megabytes) * 1024 * 1024; ++i)
            file.write(WorkflowElement(i));
        file.write("</Workflows>\n");
    }
    const QString settingsFile = data + QStringLiteral("/Velmora/WorkflowSettings/WorkflowSettings.xml");
    {
        QFile file(settingsFile);
        file.open(QIODevice::WriteOnly);
        file.write("<?xml version=\"1.0\"?>\n<WorkflowSettings><Workflows>\n");
        for (int i = 0; file.size() < qint64(megabytes) * 1024 * 1024 / 3; ++i)
            file.write("<Workflow Id=\"Id_" + QByteArray::number(i) +
                       "\" ShowIntroductionOnExecute=\"True\" Key=\"value\" Other=\"another value of a "
                       "setting\"/>\n");
        file.write("</Workflows></WorkflowSettings>\n");
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_DATA_HOME"), data);
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), root.filePath(QStringLiteral("cache")));
    environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), root.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), root.filePath(QStringLiteral("runtime")));
    QDir().mkpath(root.filePath(QStringLiteral("runtime")));
    QFile::setPermissions(root.filePath(QStringLiteral("runtime")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    for (const auto& [kind, path] : {std::pair{QStringLiteral("workflow"), workflowFile},
                                     std::pair{QStringLiteral("load"), workflowFile},
                                     std::pair{QStringLiteral("settings"), settingsFile}})
    {
        std::printf("%s file:\n", qPrintable(kind));
        std::fflush(stdout);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--measure"), kind, path});
        process.waitForFinished(-1);
    }
    return 0;
}
