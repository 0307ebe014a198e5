#include "ui/AppStyle.h"

#include <QFontDatabase>

namespace kestrix::AppStyle {

QFont systemFont(int size, QFont::Weight weight)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPixelSize(size);
    font.setWeight(weight);
    return font;
}

} // namespace kestrix::AppStyle
