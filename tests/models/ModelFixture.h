// SPDX-License-Identifier: MIT
#pragma once

// A small catalogue for the list-model tests: three products with display names that sort
// differently from their ids, one installed; three templates and three workflows made from them.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/TextOut.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"

#include <QColor>
#include <QImage>
#include <QStringList>

#include <initializer_list>

namespace VmWorkflowTest {

using namespace Velmora::WorkflowCore;

// A host application whose current product the test chooses.
class TestHost : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar* buffer, int size) override
    {
        ++calls;
        lastSize = size;
        return CopyTextOut(currentProduct, buffer, size);
    }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }

    QString currentProduct;
    int calls = 0;
    int lastSize = 0;
};

inline bool WriteProductsAndManifests(const TestEnvironment& env)
{
    const QString products = env.Root() + QStringLiteral("/products");
    // Display names order as prodB < prodC < prodA, the reverse of the ids for prodA.
    return WriteFile(products + QStringLiteral("/Products.xml"),
                     "<Products>"
                     "<Product Id=\"prodA\" Name=\"Zulu\" OstrelName=\"Id_A\"/>"
                     "<Product Id=\"prodB\" Name=\"Alpha\" OstrelName=\"Id_B\"/>"
                     "<Product Id=\"prodC\" Name=\"Mike\" OstrelName=\"Id_C\"/>"
                     "</Products>") &&
           WriteFile(env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf"),
                     "[General]\nProductsXmlFileSearchPath=" + QFile::encodeName(products) + "\n") &&
           WriteFile(env.DataDirs() + QStringLiteral("/Velmora/Applications/a.xml"),
                     "<Application Id=\"Id_A\" Version=\"2016.1\" Executable=\"/bin/true\" InfoId=\"1\"/>");
}

// Templates T1 "Report", T2 "Export", T3 "Archive" and workflows W1 "Monthly", W2 "Backup",
// W3 "Report" in two files of folder; T1 has a 16-pixel image.
inline bool WriteSampleCatalogue(const QString& folder)
{
    QImage image(16, 16, QImage::Format_ARGB32);
    image.fill(QColor(200, 40, 40));
    QDir().mkpath(folder + QStringLiteral("/images"));
    if (!image.save(folder + QStringLiteral("/images/report16.png")))
        return false;
    const QByteArray templates =
        WorkflowElement(
            R"(Id="T1" IsTemplate="True" Name="Report" PrimaryProduct="prodA" TargetProduct="prodA:2016" )"
            R"(RequiredProducts="prodA" TemplateImage="images/report16.png|images/report32.png")") +
        WorkflowElement(
            R"(Id="T2" IsTemplate="True" Name="Export" PrimaryProduct="prodB" TargetProduct="prodB:2017" )"
            R"(RequiredProducts="prodB")") +
        WorkflowElement(
            R"(Id="T3" IsTemplate="True" Name="Archive" PrimaryProduct="prodA" TargetProduct="prodC:2015" )"
            R"(RequiredProducts="prodC,prodA")");
    const QByteArray workflows =
        WorkflowElement(R"(Id="W1" IsTemplate="False" TemplateId="T1" Name="Monthly" PrimaryProduct="prodA" )"
                        R"(TargetProduct="prodA:2016" RequiredProducts="prodA")") +
        WorkflowElement(R"(Id="W2" IsTemplate="False" TemplateId="T2" Name="Backup" PrimaryProduct="prodB" )"
                        R"(TargetProduct="prodB:2017" RequiredProducts="prodB")") +
        WorkflowElement(R"(Id="W3" IsTemplate="False" TemplateId="T1" Name="Report" PrimaryProduct="prodB" )"
                        R"(TargetProduct="prodB:2017" RequiredProducts="prodA")");
    return WriteFile(folder + QStringLiteral("/a-templates.workflow"), WorkflowDocument(templates)) &&
           WriteFile(folder + QStringLiteral("/b-user.workflow"), WorkflowDocument(workflows));
}

// A list of texts written as plain literals.
inline QStringList Strings(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items)
        list << QString::fromUtf8(item);
    return list;
}

inline QString IdOf(Workflow* workflow)
{
    return workflow ? ImpOf(workflow)->Fields().Id : QString();
}

inline QStringList CatalogueIds()
{
    QStringList ids;
    for (Workflow* workflow : WorkflowManagerImp::Instance()->Catalogue())
        ids << IdOf(workflow);
    return ids;
}

} // namespace VmWorkflowTest
