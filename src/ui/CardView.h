#pragma once

#include <QWidget>

namespace kestrix {

// A white card with rounded corners (AppStyle::cardCornerRadius) casting a soft purple shadow
// (AppStyle::cardShadow(), blurred by AppStyle::cardShadowBlur, AppStyle::cardShadowOffsetY
// downward). The card's own rectangle is the white surface; the shadow falls outside it, over
// whatever lies behind, and takes no room in a layout.
class CardView final : public QWidget
{
    Q_OBJECT

public:
    explicit CardView(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
};

} // namespace kestrix
