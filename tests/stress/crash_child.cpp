// Changes files through the library over and over until it is killed; says "ready" once the first
// change is on disk. Every version it writes is whole in itself, so that the test can tell a whole
// old or new file from a torn one.
// Versions count on from START (the last argument), so that every run writes newer ones.
//   crash_child save FOLDER START       saves one workflow to FOLDER/Crash.workflow; version n has
//                                 Tag "n" and a Description of 60,000 times the letter of n
//   crash_child delete FOLDER START     writes FOLDER/Multi.workflow with a template and eight
//                                 workflows of generation n (Tag "n"), reads it, and deletes seven
//                                 of the workflows one by one
//   crash_child settings FOLDER START   writes one per-user setting "n:" + 60,000 times the letter of n

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QSaveFile>

#include <cstdio>
#include <cstdlib>

using namespace Velmora::WorkflowCore;

namespace {

QChar LetterOf(unsigned long version)
{
    return QLatin1Char(char('A' + version % 26));
}

void Ready(unsigned long round)
{
    if (round != 0)
        return;
    std::puts("ready");
    std::fflush(stdout);
}

int Save(const QString& folder, unsigned long start)
{
    Workflow workflow;
    WorkflowFields& fields = ImpOf(workflow)->Fields();
    fields.IsTemplate = false;
    fields.Id = QStringLiteral("Id_Crash");
    fields.Name = QStringLiteral("Crash");
    fields.SourceFile = QDir(folder).filePath(QStringLiteral("Crash.workflow"));
    for (unsigned long version = start;; ++version)
    {
        fields.Tag = QString::number(version);
        fields.Description = QString(60000, LetterOf(version));
        if (!ImpOf(workflow)->Save())
            return 1;
        Ready(version - start);
    }
}

QByteArray Generation(unsigned long generation)
{
    // The template keeps the workflows made from it in the catalogue.
    QByteArray elements = "<Workflow Id=\"T\" IsTemplate=\"True\" Name=\"T\" Tag=\"" +
                          QByteArray::number(generation) + "\" Description=\"" +
                          QByteArray(20000, char('A' + generation % 26)) + "\"/>";
    for (int i = 0; i < 8; ++i)
        elements += "<Workflow Id=\"D" + QByteArray::number(i) +
                    "\" IsTemplate=\"False\" TemplateId=\"T\" Name=\"D" + QByteArray::number(i) +
                    "\" Tag=\"" + QByteArray::number(generation) + "\" Description=\"" +
                    QByteArray(20000, char('A' + generation % 26)) + "\"/>";
    return "<?xml version=\"1.0\"?>\n<Workflows>" + elements + "</Workflows>\n";
}

int Delete(const QString& folder, unsigned long start)
{
    WorkflowManagerImp* manager = WorkflowManagerImp::Instance();
    manager->SetWorkflowSearchPaths(folder);
    const QString file = QDir(folder).filePath(QStringLiteral("Multi.workflow"));
    for (unsigned long generation = start;; ++generation)
    {
        QSaveFile whole(file);
        if (!whole.open(QIODevice::WriteOnly) || whole.write(Generation(generation)) < 0 || !whole.commit())
            return 1;
        manager->ScanCatalogue();
        for (int i = 0; i < 7; ++i)
        {
            if (!manager->DeleteWorkflow(QStringLiteral("D%1").arg(i), file, true))
                return 1;
            Ready(generation - start + unsigned(i));
        }
    }
}

int Settings(unsigned long start)
{
    for (unsigned long version = start;; ++version)
    {
        WorkflowSettingsStore().Write(QStringLiteral("Id_Crash"), QStringLiteral("Big"),
                                      QString::number(version) + QLatin1Char(':') +
                                          QString(60000, LetterOf(version)));
        Ready(version - start);
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString mode = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (argc != 4)
        return 2;
    const QString folder = QString::fromLocal8Bit(argv[2]);
    const unsigned long start = std::strtoul(argv[3], nullptr, 10);
    if (mode == QLatin1String("save"))
        return Save(folder, start);
    if (mode == QLatin1String("settings"))
        return Settings(start);
    if (mode == QLatin1String("delete"))
    {
        if (!WorkflowManager::Initialize())
            return 1;
        return Delete(folder, start);
    }
    return 2;
}
