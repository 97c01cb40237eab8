// SPDX-License-Identifier: MIT
// Reads one hostile file (deeply nested, or no regular file at all) the way the library's readers do, then
// exits normally; the test that starts it looks at the exit and the printed result. A stack overflow kills
// this process, not the test.
//   deepxml_child filer|xliff|products <file>
//   deepxml_child workflows <folder>       (scans the folder as a search path)
//   deepxml_child settings                 (reads and writes one per-user setting)
//   deepxml_child locate                   (reads the machine settings for the product catalogue)

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductCatalog.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/XlfCatalog.h"
#include "util/XmlFiler.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QTextStream>

#include <string>

using namespace Velmora::WorkflowCore;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2)
        return 2;
    const QString kind = arguments.at(1);
    const QString path = arguments.value(2);
    QTextStream out(stdout);
    if (kind == QLatin1String("filer"))
    {
        XmlFiler filer;
        out << (filer.Open(path) ? "opened" : "refused") << Qt::endl;
    }
    else if (kind == QLatin1String("xliff"))
    {
        XlfCatalog catalogue(path);
        out << (catalogue.Lookup(QStringLiteral("x.workflow"), QStringLiteral("1")).isNull() ? "missing"
                                                                                             : "found")
            << Qt::endl;
    }
    else if (kind == QLatin1String("products"))
    {
        ProductCatalog products;
        out << (products.LoadFile(path) ? "opened" : "refused") << Qt::endl;
    }
    else if (kind == QLatin1String("locate"))
    {
        // Where the product catalogue is looked for: reads the machine settings.
        out << ProductCatalog::LocateCatalogFile() << Qt::endl;
    }
    else if (kind == QLatin1String("workflows"))
    {
        if (!WorkflowManager::Initialize())
            return 3;
        const std::u16string folder = path.toStdU16String();
        WorkflowManager::GetInstance()->SetWorkflowSearchPaths(
            reinterpret_cast<const WideChar*>(folder.c_str()));
        QStringList ids;
        for (Workflow* workflow : ImpOf(WorkflowManager::GetInstance())->Catalogue())
            ids << ImpOf(workflow)->Fields().Id;
        out << ids.join(QLatin1Char(',')) << Qt::endl;
        WorkflowManager::Uninitialize();
    }
    else if (kind == QLatin1String("settings"))
    {
        if (!WorkflowManager::Initialize())
            return 3;
        {
            Workflow workflow;
            workflow.SetUISetting(reinterpret_cast<const WideChar*>(u"Key"),
                                  reinterpret_cast<const WideChar*>(u"V"));
            out << workflow.GetUISetting(reinterpret_cast<const WideChar*>(u"Key"), nullptr, 0) << Qt::endl;
        }
        WorkflowManager::Uninitialize();
    }
    else
    {
        return 2;
    }
    return 0;
}
