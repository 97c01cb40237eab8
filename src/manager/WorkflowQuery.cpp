// SPDX-License-Identifier: MIT
#include "manager/WorkflowQuery.h"

#include "workflow/WorkflowImp.h"

#include <QStringList>

#include <algorithm>

namespace Velmora::WorkflowCore {

WorkflowFilterMap ParseFilterText(const QString& text)
{
    WorkflowFilterMap filters;
    for (const QString& item : text.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char('='), Qt::SkipEmptyParts);
        if (pieces.size() == 2)
            filters.insert(pieces.at(0).trimmed(), pieces.at(1).trimmed());
    }
    return filters;
}

WorkflowSortMap ParseSortText(const QString& text)
{
    WorkflowSortMap sortKeys;
    for (const QString& item : text.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char(':'));
        if (pieces.size() != 2)
            continue;
        // Read like a sort order: 0 is ascending, any other number descending, text is 0.
        sortKeys.insert(pieces.at(0).trimmed(), pieces.at(1).trimmed().toInt() == 0);
    }
    return sortKeys;
}

int CompareWorkflowsByKey(Workflow* left, Workflow* right, const QString& key, const ProductNamesFunction& names)
{
    const WorkflowFields& a = left->GetImp()->Fields();
    const WorkflowFields& b = right->GetImp()->Fields();
    const auto is = [&key](const char* name) { return key.compare(QLatin1String(name), Qt::CaseInsensitive) == 0; };
    const auto productNames = [&names](const QString& ids) { return names ? names(ids) : ids; };
    if (is("Name"))
        return QString::localeAwareCompare(a.Name, b.Name);
    if (is("IsTemplate"))
    {
        if (a.IsTemplate == b.IsTemplate)
            return 0;
        return a.IsTemplate ? -1 : 1;
    }
    if (is("PrimaryProduct"))
        return QString::localeAwareCompare(productNames(a.PrimaryProduct), productNames(b.PrimaryProduct));
    if (is("TargetProduct"))
        return QString::localeAwareCompare(productNames(a.TargetProduct), productNames(b.TargetProduct));
    if (is("RequiredProduct"))
        return QString::localeAwareCompare(productNames(a.RequiredProducts), productNames(b.RequiredProducts));
    return 0;
}

void SortWorkflows(QList<Workflow*>& workflows, const QString& sortText, const ProductNamesFunction& names)
{
    QStringList items = sortText.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (items.isEmpty())
        return;
    const QString current = items.takeFirst();
    const QString rest = items.join(QLatin1Char(','));
    const QStringList pieces = current.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    const QString key = pieces.isEmpty() ? QString() : pieces.first().trimmed();
    const bool ascending = pieces.size() < 2 || pieces.at(1).trimmed().toInt() == 0;

    const auto compare = [&](Workflow* a, Workflow* b) { return CompareWorkflowsByKey(a, b, key, names); };
    std::sort(workflows.begin(), workflows.end(), [&](Workflow* a, Workflow* b) {
        return ascending ? compare(a, b) < 0 : compare(b, a) < 0;
    });
    if (rest.isEmpty())
        return;
    for (qsizetype start = 0; start < workflows.size();)
    {
        qsizetype end = start + 1;
        while (end < workflows.size() && compare(workflows.at(end - 1), workflows.at(end)) == 0)
            ++end;
        if (end - start > 1)
        {
            QList<Workflow*> run = workflows.mid(start, end - start);
            SortWorkflows(run, rest, names);
            std::copy(run.cbegin(), run.cend(), workflows.begin() + start);
        }
        start = end;
    }
}

} // namespace Velmora::WorkflowCore
