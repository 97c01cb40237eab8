// SPDX-License-Identifier: MIT
#include "manager/WorkflowQuery.h"

#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <VmWorkflowCore/WorkflowQueryKeys.h>

#include <QStringList>

#include <algorithm>
#include <vector>

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

namespace {

enum class KeyKind
{
    Unknown,
    Template,
    Text
};

KeyKind KindOf(const QString& key)
{
    const auto is = [&key](const char* name) {
        return key.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
    };
    if (is(QueryKeys::IsTemplate))
        return KeyKind::Template;
    if (is(QueryKeys::Name) || is(QueryKeys::PrimaryProduct) || is(QueryKeys::TargetProduct) ||
        is(QueryKeys::RequiredProduct))
        return KeyKind::Text;
    return KeyKind::Unknown;
}

// The text a key of kind Text compares: the name, or the display names of a product field.
QString KeyText(const WorkflowFields& fields, const QString& key, const ProductNamesFunction& names)
{
    const auto productNames = [&names](const QString& ids) { return names ? names(ids) : ids; };
    if (key.compare(QLatin1String(QueryKeys::Name), Qt::CaseInsensitive) == 0)
        return fields.Name;
    if (key.compare(QLatin1String(QueryKeys::PrimaryProduct), Qt::CaseInsensitive) == 0)
        return productNames(fields.PrimaryProduct);
    if (key.compare(QLatin1String(QueryKeys::TargetProduct), Qt::CaseInsensitive) == 0)
        return productNames(fields.TargetProduct);
    return productNames(fields.RequiredProducts);
}

int CompareTemplateFlags(bool a, bool b)
{
    if (a == b)
        return 0;
    return a ? -1 : 1;
}

struct SortItem
{
    QString key;
    KeyKind kind = KeyKind::Unknown;
    bool ascending = true;
};

// The sort text's items in the order written, read the way the sort reads each current item.
std::vector<SortItem> SortItems(const QString& sortText)
{
    std::vector<SortItem> items;
    for (const QString& item : sortText.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char(':'), Qt::SkipEmptyParts);
        SortItem parsed;
        parsed.key = pieces.isEmpty() ? QString() : pieces.first().trimmed();
        parsed.kind = KindOf(parsed.key);
        parsed.ascending = pieces.size() < 2 || pieces.at(1).trimmed().toInt() == 0;
        items.push_back(parsed);
    }
    return items;
}

} // namespace

int CompareWorkflowsByKey(Workflow* left, Workflow* right, const QString& key,
                          const ProductNamesFunction& names)
{
    const WorkflowFields& a = ImpOf(left)->Fields();
    const WorkflowFields& b = ImpOf(right)->Fields();
    switch (KindOf(key))
    {
    case KeyKind::Template:
        return CompareTemplateFlags(a.IsTemplate, b.IsTemplate);
    case KeyKind::Text:
        return QString::localeAwareCompare(KeyText(a, key, names), KeyText(b, key, names));
    case KeyKind::Unknown:
        break;
    }
    return 0;
}

void SortWorkflows(QList<Workflow*>& workflows, const QString& sortText, const ProductNamesFunction& names)
{
    const std::vector<SortItem> items = SortItems(sortText);
    if (items.empty() || workflows.size() < 2)
        return;
    // Sorting by the first item and then each run it left equal by the rest is one sort by all
    // items in the order written. The texts compared are worked out once per workflow rather
    // than once per comparison: product display names cost a catalogue lookup each.
    struct Row
    {
        Workflow* workflow;
        std::vector<QString> texts;
    };
    std::vector<Row> rows;
    rows.reserve(size_t(workflows.size()));
    for (Workflow* workflow : std::as_const(workflows))
    {
        Row row{workflow, {}};
        row.texts.reserve(items.size());
        const WorkflowFields& fields = ImpOf(workflow)->Fields();
        for (const SortItem& item : items)
            row.texts.push_back(item.kind == KeyKind::Text ? KeyText(fields, item.key, names) : QString());
        rows.push_back(std::move(row));
    }
    const auto compare = [&items](const Row& a, const Row& b, size_t i) {
        switch (items[i].kind)
        {
        case KeyKind::Template:
            return CompareTemplateFlags(ImpOf(a.workflow)->Fields().IsTemplate,
                                        ImpOf(b.workflow)->Fields().IsTemplate);
        case KeyKind::Text:
            return QString::localeAwareCompare(a.texts[i], b.texts[i]);
        case KeyKind::Unknown:
            break;
        }
        return 0;
    };
    std::sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
        for (size_t i = 0; i < items.size(); ++i)
        {
            const int order = compare(a, b, i);
            if (order != 0)
                return items[i].ascending ? order < 0 : order > 0;
        }
        return false;
    });
    for (qsizetype i = 0; i < workflows.size(); ++i)
        workflows[i] = rows[size_t(i)].workflow;
}

} // namespace Velmora::WorkflowCore
