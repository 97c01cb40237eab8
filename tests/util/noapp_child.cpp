// SPDX-License-Identifier: MIT
// A host that never makes an application object: it prints the library's idea of its folder and
// how many workflows it finds in the folder given, and must not make Qt complain on the way.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "util/FileUtil.h"

#include <QString>

#include <cstdio>
#include <memory>

using namespace Velmora::WorkflowCore;

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    std::printf("%s\n", ApplicationFolder().toUtf8().constData());
    WorkflowManager::Initialize();
    const QString folder = QString::fromLocal8Bit(argv[1]);
    WorkflowManager::GetInstance()->SetWorkflowSearchPaths(reinterpret_cast<const WideChar*>(folder.utf16()));
    std::unique_ptr<WorkflowIterator> it(WorkflowManager::GetInstance()->GetWorkflows());
    int count = 0;
    while (it->MoveNext())
        ++count;
    it.reset();
    WorkflowManager::Uninitialize();
    std::printf("%d\n", count);
    return 0;
}
