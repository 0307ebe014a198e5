#pragma once

#include <QColor>
#include <QFont>

// The preferences window's own look: a purple header band over a pale lavender diagonal gradient,
// controls grouped on white cards with a faint purple shadow. Every colour is an exact sRGB value;
// the constants are compile-time values, so there is nothing to initialise and nothing to race on.
namespace kestrix::AppStyle {

// Window background, header band, section labels, the speed value; base of the card shadow.
inline constexpr QColor purple { 96, 92, 168 };
// The footer's web site link and contact line.
inline constexpr QColor purpleLight { 123, 120, 184 };
// The background gradient runs from bgStart (top-left, the lightest) to bgEnd (bottom-right).
inline constexpr QColor bgStart { 248, 247, 252 };
inline constexpr QColor bgEnd { 232, 230, 245 };
// The speed row's title.
inline constexpr QColor textPrimary { 51, 51, 51 };

// The cards' shadow: the components of `purple` at 15 % opacity (a colour of its own: `purple`
// itself stays opaque).
inline QColor cardShadow()
{
    QColor shadow = purple;
    shadow.setAlphaF(0.15f);
    return shadow;
}
inline constexpr double cardCornerRadius = 12.0; // logical pixels
inline constexpr double cardShadowBlur = 10.0; // logical pixels
inline constexpr double cardShadowOffsetY = 2.0; // logical pixels, downward

// The desktop's font at the given size and weight. The size is in the window's own unit, the
// logical pixel (the unit of its fixed 416 x 520 size, a point of the design), so text and layout
// scale together with the screen and the text always fits the fixed window. A font size set in
// typographic points would grow with the desktop's font scaling while the window stays fixed.
QFont systemFont(int size, QFont::Weight weight = QFont::Normal);

} // namespace kestrix::AppStyle
