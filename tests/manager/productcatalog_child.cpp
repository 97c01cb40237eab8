// SPDX-License-Identifier: MIT
// Starts the manager and prints, one per line, where its product catalogue was found and the display
// names of the product ids it is given. The test copies this program into a folder of its own, so
// that a catalogue can lie beside it without lying beside every other test program.
//   productcatalog_child <product ids joined by ",">

#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductCatalog.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace Velmora::WorkflowCore;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 2 || !WorkflowManager::Initialize())
        return 2;
    QTextStream out(stdout);
    out << ProductCatalog::LocateCatalogFile() << Qt::endl;
    out << ImpOf(WorkflowManager::GetInstance())->Products().NameList(arguments.at(1)) << Qt::endl;
    WorkflowManager::Uninitialize();
    return 0;
}
