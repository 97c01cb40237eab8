// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstddef>

namespace Velmora::WorkflowCore {

// A text that compares and hashes as its case-folded form (QString::toCaseFolded) without
// keeping that form: the key of the catalogue's lookups by Id and by name. Folding every Id and
// name of a large catalogue into texts of their own costs an allocation each, at every start
// and at every lookup. Plain ASCII, nearly every Id and name there is, folds one character at a
// time on the fly; any other text is folded whole, so that two texts are equal exactly when
// their folded forms are.
//
// The hash of the folded form is taken once, when the key is made. A lookup in a table of
// thousands of keys compares the one it looks for with several others whose texts lie all over
// the heap; keys whose hashes differ are told apart without reading those texts at all.
class FoldedText
{
public:
    FoldedText();
    explicit FoldedText(QString text);

    const QString& Text() const { return m_text; }

    friend bool operator==(const FoldedText& a, const FoldedText& b);
    friend bool operator!=(const FoldedText& a, const FoldedText& b) { return !(a == b); }
    // The hash of the folded form, so that equal keys hash alike whichever way they fold.
    friend size_t qHash(const FoldedText& key, size_t seed);

private:
    QString m_text;
    // Beside the flag in what the text leaves free: a key takes no more room than before.
    quint32 m_hash = 0;
    bool m_ascii = true;
};

} // namespace Velmora::WorkflowCore
