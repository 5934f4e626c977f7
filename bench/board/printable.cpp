// SPDX-License-Identifier: MIT

#include "bench/board/printable.h"

QString printable(const QString &text, int longest)
{
    QString result = text.left(longest);
    for (QChar &c : result) {
        switch (c.category()) {
        case QChar::Other_Control:
        case QChar::Other_Format: // among them those that turn the direction of writing
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph:
            c = QLatin1Char('?');
            break;
        default:
            break;
        }
    }
    return text.size() > longest ? result + QStringLiteral("...") : result;
}
