// SPDX-License-Identifier: MIT
#include "BrowserWindow.h"

#include "SampleData.h"
#include "WorkflowText.h"

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QLocale>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStatusBar>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <algorithm>

using namespace Velmora::WorkflowCore;
using VmWorkflowTool::ReadText;
using VmWorkflowTool::RunsHere;
using VmWorkflowTool::Wide;

namespace VmWorkflowBrowser {

// The browser stands in for a product application: its current product is the one chosen in the
// window, and every workflow may be started from it.
class BrowserHost : public HostApplicationContext
{
public:
    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments*) override {}
    int GetCurrentProductId(WideChar* buffer, int size) override
    {
        const int length = int(currentProduct.size());
        if (!buffer)
            return length;
        if (size < 1)
            return 0;
        const int copied = std::min(length, size - 1);
        std::copy_n(reinterpret_cast<const WideChar*>(currentProduct.utf16()), copied, buffer);
        buffer[copied] = 0;
        return copied;
    }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }

    QString currentProduct;
};

namespace {

WorkflowManager* Manager()
{
    return WorkflowManager::GetInstance();
}

QString Text(Workflow* workflow, int (Workflow::*getter)(WideChar*, int))
{
    return ReadText([&](WideChar* b, int s) { return (workflow->*getter)(b, s); });
}

QString ProductNames(const QString& ids)
{
    if (ids.isEmpty())
        return QString();
    const Wide wideIds(ids);
    const QString names =
        ReadText([&](WideChar* b, int s) { return Manager()->ProductIdsToNameList(wideIds, b, s); });
    return QStringLiteral("%1 (%2)").arg(names.toHtmlEscaped(), ids.toHtmlEscaped());
}

} // namespace

BrowserWindow::BrowserWindow(const QString& searchPaths, QWidget* parent)
    : QMainWindow(parent), m_host(std::make_unique<BrowserHost>())
{
    setWindowTitle(tr("Workflow Browser"));
    m_searchPaths = searchPaths;
    if (m_searchPaths.isEmpty())
    {
        m_searchPaths = VmWorkflowTool::DefaultSearchPaths();
        VmWorkflowTool::UseSampleApplications();
        VmWorkflowTool::UseBuiltHostApplication();
        VmWorkflowTool::UseInstalledMachineSettings();
    }
    if (!Manager())
    {
        WorkflowManager::Initialize();
        m_ownsManager = true;
    }
    BuildWidgets();
    Manager()->SetCurrentLocale(Wide(m_language->currentData().toString()));
    QLocale::setDefault(QLocale(m_language->currentData().toString()));
    Manager()->SetWorkflowSearchPaths(Wide(m_searchPaths));

    // The products to stand in for: every primary product of the catalogue.
    QStringList products;
    std::unique_ptr<WorkflowIterator> it(Manager()->GetWorkflows());
    int count = 0;
    while (it->MoveNext())
    {
        ++count;
        for (const QString& id :
             Text(it->GetCurrent(), &Workflow::GetPrimaryProduct).split(QLatin1Char(','), Qt::SkipEmptyParts))
        {
            if (!products.contains(id, Qt::CaseInsensitive))
                products << id;
        }
    }
    products.sort(Qt::CaseInsensitive);
    for (const QString& id : std::as_const(products))
    {
        const Wide wideId(id);
        const QString name =
            ReadText([&](WideChar* b, int s) { return Manager()->ProductIdsToNameList(wideId, b, s); });
        m_product->addItem(name.isEmpty() ? id : name, id);
    }
    m_host->currentProduct = m_product->currentData().toString();
    Manager()->SetHostApplicationContext(m_host.get());

    if (count == 0)
        ShowNotice(tr("No workflows were found on the search paths: %1").arg(m_searchPaths.toHtmlEscaped()),
                   true);

    connect(m_filter, &QLineEdit::textChanged, this, &BrowserWindow::RebuildModel);
    connect(m_sort, &QComboBox::currentIndexChanged, this, &BrowserWindow::RebuildModel);
    connect(m_product, &QComboBox::currentIndexChanged, this, [this] {
        m_host->currentProduct = m_product->currentData().toString();
        RebuildModel();
    });
    connect(m_language, &QComboBox::currentIndexChanged, this, &BrowserWindow::SwitchLanguage);
    connect(m_run, &QPushButton::clicked, this, &BrowserWindow::RunSelected);
    FollowExecutions();
    RebuildModel();
}

BrowserWindow::~BrowserWindow()
{
    m_list->setModel(nullptr);
    m_proxy.reset();
    if (Manager() && Manager()->GetHostApplicationContext() == m_host.get())
        Manager()->SetHostApplicationContext(nullptr);
    if (m_ownsManager)
        WorkflowManager::Uninitialize();
}

void BrowserWindow::BuildWidgets()
{
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);

    auto* controls = new QFormLayout;
    m_product = new QComboBox(central);
    m_product->setObjectName(QStringLiteral("product"));
    controls->addRow(tr("Current product:"), m_product);
    m_filter = new QLineEdit(central);
    m_filter->setObjectName(QStringLiteral("filter"));
    m_filter->setPlaceholderText(tr("key=value joined by \",\", e.g. IsExecutable=true,IsTemplate=false"));
    m_filter->setClearButtonEnabled(true);
    controls->addRow(tr("Filter:"), m_filter);
    m_sort = new QComboBox(central);
    m_sort->setObjectName(QStringLiteral("sort"));
    m_sort->addItem(tr("Target product, templates first, name"), QString());
    m_sort->addItem(tr("Name"), QStringLiteral("Name:0"));
    m_sort->addItem(tr("Name, descending"), QStringLiteral("Name:1"));
    m_sort->addItem(tr("Templates first, then name"), QStringLiteral("IsTemplate:0,Name:0"));
    m_sort->addItem(tr("Name, then target product descending"), QStringLiteral("TargetProduct:1,Name:0"));
    m_sort->addItem(tr("Primary product"), QStringLiteral("PrimaryProduct:0"));
    controls->addRow(tr("Sort:"), m_sort);
    m_language = new QComboBox(central);
    m_language->setObjectName(QStringLiteral("language"));
    m_language->addItem(QStringLiteral("English (en-US)"), QStringLiteral("en-US"));
    m_language->addItem(QStringLiteral("Deutsch (de-DE)"), QStringLiteral("de-DE"));
    m_language->addItem(QStringLiteral("Français (fr-FR)"), QStringLiteral("fr-FR"));
    controls->addRow(tr("Language:"), m_language);
    layout->addLayout(controls);

    m_notice = new QLabel(central);
    m_notice->setObjectName(QStringLiteral("notice"));
    m_notice->setWordWrap(true);
    m_notice->hide();
    layout->addWidget(m_notice);

    auto* splitter = new QSplitter(Qt::Horizontal, central);
    m_list = new QListView(splitter);
    m_list->setObjectName(QStringLiteral("workflows"));
    m_list->setIconSize(QSize(16, 16));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setUniformItemSizes(true);
    auto* right = new QWidget(splitter);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    m_details = new QTextBrowser(right);
    m_details->setObjectName(QStringLiteral("details"));
    rightLayout->addWidget(m_details);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    m_run = new QPushButton(tr("Run"), right);
    m_run->setObjectName(QStringLiteral("run"));
    m_run->setEnabled(false);
    buttons->addWidget(m_run);
    rightLayout->addLayout(buttons);
    splitter->addWidget(m_list);
    splitter->addWidget(right);
    splitter->setStretchFactor(0, 2);
    splitter->setStretchFactor(1, 3);
    layout->addWidget(splitter, 1);
    setCentralWidget(central);

    m_runStatus = new QLabel(tr("No workflow is running."), this);
    m_runStatus->setObjectName(QStringLiteral("runStatus"));
    statusBar()->addWidget(m_runStatus, 1);
    resize(760, 460);
}

void BrowserWindow::RebuildModel()
{
    // The proxy reads its two texts once; a change of either makes a new one.
    std::unique_ptr<QSortFilterProxyModel> proxy(
        WorkflowPrivate::GetWorkflowListModel(m_filter->text(), m_sort->currentData().toString()));
    m_list->setModel(proxy.get());
    m_proxy = std::move(proxy);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &BrowserWindow::ShowDetails);
    connect(m_proxy.get(), &QAbstractItemModel::modelReset, this, &BrowserWindow::ShowDetails);
    connect(m_proxy.get(), &QAbstractItemModel::dataChanged, this, &BrowserWindow::ShowDetails);
    ShowDetails();
}

QStringList BrowserWindow::VisibleNames() const
{
    QStringList names;
    for (int row = 0; m_proxy && row < m_proxy->rowCount(); ++row)
        names << m_proxy->index(row, 0).data(Qt::DisplayRole).toString();
    return names;
}

bool BrowserWindow::SelectByName(const QString& name)
{
    for (int row = 0; m_proxy && row < m_proxy->rowCount(); ++row)
    {
        const QModelIndex index = m_proxy->index(row, 0);
        if (index.data(Qt::DisplayRole).toString() == name)
        {
            m_list->setCurrentIndex(index);
            return true;
        }
    }
    return false;
}

Workflow* BrowserWindow::SelectedWorkflow() const
{
    const QModelIndex current = m_list->currentIndex();
    if (!current.isValid() || !m_proxy)
        return nullptr;
    // Proxy rows map to catalogue rows: the list model's row i is the catalogue's i-th workflow.
    return WorkflowPrivate::GetWorkflow(m_proxy->mapToSource(current).row());
}

void BrowserWindow::ShowDetails()
{
    Workflow* workflow = SelectedWorkflow();
    m_run->setEnabled(workflow != nullptr);
    if (!workflow)
    {
        m_details->setHtml(tr("<p><i>Select a workflow to see its details.</i></p>"));
        return;
    }
    const QString yes = tr("yes");
    const QString no = tr("no");
    QString html;
    html += QStringLiteral("<h3>%1</h3>").arg(Text(workflow, &Workflow::GetName).toHtmlEscaped());
    html += QStringLiteral("<p>%1</p>").arg(Text(workflow, &Workflow::GetDescription).toHtmlEscaped());
    const QString introduction =
        ReadText([&](WideChar* b, int s) { return workflow->GetIntroduction(b, s); });
    if (!introduction.isEmpty())
        html += QStringLiteral("<p><b>%1</b> %2</p>").arg(tr("Introduction:"), introduction.toHtmlEscaped());
    html += QStringLiteral("<table cellspacing=\"4\">");
    const auto row = [&html](const QString& label, const QString& value) {
        html += QStringLiteral("<tr><td><b>%1</b></td><td>%2</td></tr>").arg(label, value);
    };
    row(tr("Kind:"), workflow->IsTemplate() ? tr("template") : tr("workflow"));
    row(tr("Primary product:"), ProductNames(Text(workflow, &Workflow::GetPrimaryProduct)));
    row(tr("Target product:"), ProductNames(Text(workflow, &Workflow::GetTargetProduct)));
    // The required products are an expression, not a list of ids: shown as written and as the
    // workflow describes it.
    row(tr("Required products:"), Text(workflow, &Workflow::GetRequiredProducts).toHtmlEscaped());
    row(tr("Requires:"), Text(workflow, &Workflow::GetRequiredProductsDisplayText).toHtmlEscaped());
    row(tr("Read-only:"), workflow->IsReadOnly() ? yes : no);
    row(tr("Runs here:"), RunsHere(workflow) ? yes : no);
    html += QStringLiteral("</table>");
    m_details->setHtml(html);
}

void BrowserWindow::RunSelected()
{
    Workflow* workflow = SelectedWorkflow();
    if (!workflow)
        return;
    if (Manager()->ExecuteWorkflow(workflow, WorkflowBrowser))
        ShowNotice(tr("Starting \"%1\"…").arg(Text(workflow, &Workflow::GetName).toHtmlEscaped()), false);
    else
        ShowNotice(tr("The workflow could not be started."), true);
}

void BrowserWindow::SwitchLanguage()
{
    const QString locale = m_language->currentData().toString();
    QLocale::setDefault(QLocale(locale));
    Manager()->SetCurrentLocale(Wide(locale));
    // Workflow texts are translated as the files are read, so the catalogue is read again: the
    // same folders, written once with and once without a closing ";".
    const QString current =
        ReadText([](WideChar* b, int s) { return Manager()->GetWorkflowSearchPaths(b, s); });
    const QString reread =
        current.endsWith(QLatin1Char(';')) ? current.chopped(1) : current + QLatin1Char(';');
    Manager()->SetWorkflowSearchPaths(Wide(reread));
    RebuildModel();
}

void BrowserWindow::FollowExecutions()
{
    WorkflowNotificationManager* notifications = Manager()->GetNotificationManager();
    if (!notifications)
        return;
    const auto describe = [](ExecutingWorkflow* running) {
        Workflow* workflow = running ? running->GetWorkflow() : nullptr;
        return workflow ? Text(workflow, &Workflow::GetName) : tr("a workflow");
    };
    connect(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning, this,
            [this, describe](ExecutingWorkflow* running) {
                m_runStatus->setText(tr("Running: %1").arg(describe(running)));
            });
    connect(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished, this,
            [this, describe](ExecutingWorkflow* running) {
                const int status = running ? running->GetErrorStatus() : 0;
                const QString message =
                    running ? ReadText([&](WideChar* b, int s) { return running->GetErrorMessage(b, s); })
                            : QString();
                QString text = tr("Finished: %1").arg(describe(running));
                if (status != 0)
                    text += tr(" (status %1%2)")
                                .arg(status)
                                .arg(message.isEmpty() ? QString() : QStringLiteral(": ") + message);
                m_runStatus->setText(text);
            });
}

void BrowserWindow::ShowNotice(const QString& text, bool problem)
{
    m_notice->setText(problem ? QStringLiteral("<span style=\"color:#b00020\">%1</span>").arg(text) : text);
    m_notice->show();
}

} // namespace VmWorkflowBrowser
