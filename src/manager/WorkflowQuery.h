// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QMap>
#include <QString>

#include <functional>

namespace Velmora::WorkflowCore {

class Workflow;

// Filter text: "key=value" items joined by ","; every entry must hold for a workflow to pass.
// Entries are ordered by the key text.
using WorkflowFilterMap = QMap<QString, QString>;
// Sort text of the list proxy: "key:number" items joined by ","; true means ascending.
using WorkflowSortMap = QMap<QString, bool>;

WorkflowFilterMap ParseFilterText(const QString& text);
WorkflowSortMap ParseSortText(const QString& text);

// Turns a list of product ids into the display text the sort compares.
using ProductNamesFunction = std::function<QString(const QString& productIds)>;

// Compares two workflows by one sort key ("Name", "IsTemplate", "PrimaryProduct",
// "TargetProduct", "RequiredProduct", matched ignoring case); 0 for any other key.
int CompareWorkflowsByKey(Workflow* left, Workflow* right, const QString& key,
                          const ProductNamesFunction& names);

// Sorts by a sort text whose items, in the order written, decide priority: the first item sorts
// the whole list, each later item sorts the runs the earlier ones left equal.
void SortWorkflows(QList<Workflow*>& workflows, const QString& sortText, const ProductNamesFunction& names);

} // namespace Velmora::WorkflowCore
