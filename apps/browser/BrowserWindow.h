// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/WorkflowManager.h>

#include <QMainWindow>
#include <QPointer>
#include <QString>

#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;
class QSortFilterProxyModel;
class QTextBrowser;

namespace VmWorkflowBrowser {

class BrowserHost;

// The workflow browser: the catalogue through the library's list proxy, a filter and a sort
// choice, the selected workflow's details, a Run button and the state of runs, in one window.
// The window starts the workflow manager when no one else has and stops it again at the end.
class BrowserWindow : public QMainWindow
{
    Q_OBJECT
public:
    // searchPaths: workflow folders joined by ";"; empty means the bundled samples.
    explicit BrowserWindow(const QString& searchPaths = QString(), QWidget* parent = nullptr);
    ~BrowserWindow() override;

    QListView* WorkflowList() const { return m_list; }
    QLineEdit* FilterField() const { return m_filter; }
    QComboBox* SortChoice() const { return m_sort; }
    QComboBox* ProductChoice() const { return m_product; }
    QComboBox* LanguageChoice() const { return m_language; }
    QTextBrowser* Details() const { return m_details; }
    QPushButton* RunButton() const { return m_run; }
    QLabel* Notice() const { return m_notice; }
    QLabel* RunStatus() const { return m_runStatus; }
    // The names of the rows the list shows, top to bottom.
    QStringList VisibleNames() const;
    // Selects the row of the list that shows this name; false when none does.
    bool SelectByName(const QString& name);

private:
    void BuildWidgets();
    void RebuildModel();
    void ShowDetails();
    void RunSelected();
    void SwitchLanguage();
    void FollowExecutions();
    void ShowNotice(const QString& text, bool problem);
    Velmora::WorkflowCore::Workflow* SelectedWorkflow() const;

    bool m_ownsManager = false;
    QString m_searchPaths;
    std::unique_ptr<BrowserHost> m_host;
    std::unique_ptr<QSortFilterProxyModel> m_proxy;

    QListView* m_list = nullptr;
    QLineEdit* m_filter = nullptr;
    QComboBox* m_sort = nullptr;
    QComboBox* m_product = nullptr;
    QComboBox* m_language = nullptr;
    QTextBrowser* m_details = nullptr;
    QPushButton* m_run = nullptr;
    QLabel* m_notice = nullptr;
    QLabel* m_runStatus = nullptr;
};

} // namespace VmWorkflowBrowser
