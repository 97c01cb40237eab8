// SPDX-License-Identifier: MIT
#include "util/NameOrder.h"

#include <QtGlobal>

#include <algorithm>

namespace Velmora::WorkflowCore {

namespace {

// How many units a key holds.
constexpr qsizetype kKeyUnits = 4;

// The units of name from at on, as a number that orders as they do: the first unit highest, a
// unit past the end as a zero. Two names whose keys differ are in the order of their keys; two
// whose keys are equal are told apart by the rest of their units.
quint64 KeyAt(QStringView name, qsizetype at)
{
    quint64 key = 0;
    for (qsizetype i = 0; i < kKeyUnits; ++i)
        key = (key << 16) | (at + i < name.size() ? quint64(name[at + i].unicode()) : 0u);
    return key;
}

} // namespace

void SortByName(std::vector<qsizetype>& places, const QStringList& names)
{
    if (places.size() < 2)
        return;
    // The units every name begins with decide nothing.
    const QStringView first = names.at(places.front());
    qsizetype shared = first.size();
    for (const qsizetype place : places)
    {
        const QStringView name = names.at(place);
        const qsizetype limit = std::min(shared, name.size());
        qsizetype i = 0;
        while (i < limit && name[i] == first[i])
            ++i;
        shared = i;
        if (shared == 0)
            break;
    }
    struct Keyed
    {
        quint64 key;
        qsizetype place;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(places.size());
    for (const qsizetype place : places)
        keyed.push_back({KeyAt(names.at(place), shared), place});
    std::sort(keyed.begin(), keyed.end(), [&names, shared](const Keyed& a, const Keyed& b) {
        if (a.key != b.key)
            return a.key < b.key;
        return QStringView(names.at(a.place)).sliced(shared) < QStringView(names.at(b.place)).sliced(shared);
    });
    for (size_t i = 0; i < keyed.size(); ++i)
        places[i] = keyed[i].place;
}

} // namespace Velmora::WorkflowCore
