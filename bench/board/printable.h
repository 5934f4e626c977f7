// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// @p text on one line and harmless on a terminal: what controls one is replaced, and what goes
/// beyond @p longest characters is cut, with a mark.
inline QString printable(const QString &text, int longest = 200)
{
    QString result = text.left(longest);
    for (QChar &c : result) {
        const QChar::Category category = c.category();
        // Among the formats are those that turn the direction of writing.
        if (category == QChar::Other_Control || category == QChar::Other_Format ||
            category == QChar::Separator_Line || category == QChar::Separator_Paragraph)
            c = '?';
    }
    return text.size() > longest ? result + "..." : result;
}
