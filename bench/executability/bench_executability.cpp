// SPDX-License-Identifier: MIT
// Asking "IsExecutable" of many workflows, the way a list model filters its rows.
//
// Writes a product catalogue of 20 products and hub manifests installing half of them into a
// temporary folder, makes 10,000 workflows whose required products are expressions of 3 to 7
// leaves (mixed "&", "|", parentheses, ids with and without versions), and reports the
// microseconds per workflow of the filter predicate, median of several passes. The installed
// answers come from the hub's manifest cache; no manifest is read again during a pass.
// Usage: bench_executability [workflows, default 10000]

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductRules.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

const int kProducts = 20;

void Write(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(content);
}

QString Leaf(QRandomGenerator& random)
{
    QString id = QStringLiteral("p%1").arg(random.bounded(kProducts));
    if (random.bounded(3) == 0)
        id += QStringLiteral(":2016");
    return id;
}

// An expression of the given number of leaves: a chain of leaves and parenthesised pairs.
QString Expression(QRandomGenerator& random, int leaves)
{
    QString text;
    int written = 0;
    while (written < leaves)
    {
        if (!text.isEmpty())
            text += random.bounded(2) ? QStringLiteral(" & ") : QStringLiteral(" | ");
        if (leaves - written >= 2 && random.bounded(3) == 0)
        {
            text += QStringLiteral("(%1 %2 %3)")
                        .arg(Leaf(random), random.bounded(2) ? QStringLiteral("|") : QStringLiteral("&"),
                             Leaf(random));
            written += 2;
        }
        else
        {
            text += Leaf(random);
            ++written;
        }
    }
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
    QTemporaryDir root;
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root.path() + QStringLiteral("/cache")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root.path() + QStringLiteral("/datadirs")));
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root.path() + QStringLiteral("/config")));

    QByteArray catalogue = "<Products>\n";
    for (int i = 0; i < kProducts; ++i)
    {
        catalogue += "<Product Id=\"p" + QByteArray::number(i) + "\" Name=\"Product " +
                     QByteArray::number(i) + "\" OstrelName=\"Id_App" + QByteArray::number(i) + "\"/>\n";
        if (i % 2 == 0)
            Write(root.path() + QStringLiteral("/datadirs/Velmora/Applications/app%1.xml").arg(i),
                  "<Application Id=\"Id_App" + QByteArray::number(i) +
                      "\" Version=\"2016.1\" Executable=\"/bin/true\" "
                      "InfoId=\"" +
                      QByteArray::number(1000 + i) + "\"/>");
    }
    Write(root.path() + QStringLiteral("/products/Products.xml"), catalogue + "</Products>\n");
    Write(root.path() + QStringLiteral("/config/Velmora/Workflow/2015.0.conf"),
          "[General]\nProductsXmlFileSearchPath=" +
              QFile::encodeName(root.path() + QStringLiteral("/products")) + "\n");

    WorkflowManager::Initialize();
    QRandomGenerator random(20161122);
    std::vector<std::unique_ptr<Workflow>> workflows;
    workflows.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
    {
        auto workflow = std::make_unique<Workflow>();
        ImpOf(workflow.get())->Fields().RequiredProducts = Expression(random, 3 + i % 5);
        workflows.push_back(std::move(workflow));
    }

    // A product catalogue beside the program would win over the one written here.
    bool installed = false;
    bool missing = true;
    ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(), QStringLiteral("p0"), installed);
    ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(), QStringLiteral("p1"), missing);
    if (!installed || missing)
    {
        std::fprintf(stderr, "the benchmark's own products are not the ones in use\n");
        return 1;
    }
    const QString key = QStringLiteral("IsExecutable");
    const QString value = QStringLiteral("true");
    int executable = 0;
    std::vector<double> passes;
    for (int pass = 0; pass < 7; ++pass)
    {
        executable = 0;
        QElapsedTimer timer;
        timer.start();
        for (const auto& workflow : workflows)
            executable += WorkflowMatchesFilter(workflow.get(), key, value) ? 1 : 0;
        passes.push_back(double(timer.nsecsElapsed()) / 1000.0 / count);
    }
    std::sort(passes.begin(), passes.end());
    std::printf("IsExecutable over %d workflows (3 to 7 leaves): median %.2f us per workflow "
                "(fastest %.2f, slowest %.2f); %d executable\n",
                count, passes[passes.size() / 2], passes.front(), passes.back(), executable);
    workflows.clear();
    WorkflowManager::Uninitialize();
    return 0;
}
