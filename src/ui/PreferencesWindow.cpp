#include "ui/PreferencesWindow.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "desktop/LaunchAtLoginHelper.h"
#include "engine/ScrollConfig.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/Analytics.h"
#include "net/AppInfo.h"
#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"
#include "ui/PageFit.h"
#include "ui/WindowChrome.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QSlider>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

// The layout, in logical pixels.
constexpr int sideMargin = 24; // window edge to card, card edge to its contents
constexpr int cardTopGap = 16; // header band to the first card
constexpr int cardGap = 10; // between cards
constexpr int cardInnerMargin = 14; // card top and bottom to its first and last row
constexpr int afterSectionLabel = 8; // section label to the first checkbox
constexpr int betweenCheckboxes = 6; //
constexpr int beforeSpeedRow = 10; // last checkbox to the speed row
constexpr int speedTitleToSlider = 8; //
constexpr int sliderToValue = 6; //
constexpr int sliderWidth = 200; //
constexpr int minimumSliderWidth = 100; //
constexpr int langLabelToPopup = 12; //
constexpr int popupWidth = 160; //
constexpr int footerGap = 12; // last card to the footer
constexpr int titleTop = 36; // header top to the title's top
constexpr int titleToSubtitle = 2; //
constexpr int closeButtonInset = 8; // header top and trailing edge to the close button

// Font sizes, in the design's points (logical pixels).
constexpr int titlePoints = 18;
constexpr int subtitlePoints = 11;
constexpr int controlPoints = 13;
constexpr int sectionPoints = 12;
constexpr int footerPoints = 11;

constexpr int subtitleAlpha = 204; // white at 80 %

// A tall script lifts the header's title block into its top strip, never above the close button.
constexpr int minimumTitleTop = 28;
constexpr int cardContentWidth = PreferencesWindow::windowWidth - 4 * sideMargin;
constexpr int speedValueWidth = 32; // room kept for "50.0" when fitting the speed title

QString languageCodeAt(int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= Languages::allCases.size())
        return u"en"_s;
    return Languages::rawValue(Languages::allCases[static_cast<std::size_t>(index)]);
}

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::Text, color);
    widget->setPalette(palette);
}

// A light palette of its own, so the white cards stay readable under a dark desktop theme; the
// accent (ticks, slider track, selection) is the window's purple.
QPalette contentPalette(const QPalette &base)
{
    QPalette palette = base;
    const QColor text(29, 29, 31);
    palette.setColor(QPalette::Window, AppStyle::bgStart);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, AppStyle::bgStart);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(246, 245, 250));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Highlight, AppStyle::purple);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, Qt::white);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, AppStyle::purpleLight);
    for (const QPalette::ColorRole role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
        palette.setColor(QPalette::Disabled, role, ControlStyle::disabledColor().darker(130));
    return palette;
}

// A card's rows sit 24 in from its sides and 14 from its top and bottom, with no spacing of their
// own: each gap between rows is added where it belongs. A tall script narrows the top and bottom.
template<typename Layout> Layout *cardLayout(CardView *card, PageFit &fit)
{
    auto *layout = new Layout(card);
    layout->setContentsMargins(sideMargin, cardInnerMargin, sideMargin, cardInnerMargin);
    layout->setSpacing(0);
    fit.addLayout(layout);
    return layout;
}

// A label holding one link that is one stop of the Tab key: given the focus by the keyboard or by
// the window, it selects its link at once, so Enter follows it. A label alone would take a stop
// of its own first, where Enter does nothing.
class LinkLabel final : public QLabel
{
public:
    using QLabel::QLabel;

protected:
    void focusInEvent(QFocusEvent *event) override
    {
        QLabel::focusInEvent(event);
        const Qt::FocusReason reason = event->reason();
        if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason || reason == Qt::OtherFocusReason)
            focusNextPrevChild(reason != Qt::BacktabFocusReason);
    }
};

} // namespace

PreferencesServices PreferencesServices::live()
{
    return {
        .sendAnalytics = [](const QString &name, const QJsonObject &params) { Analytics::send(name, params); },
        .setLaunchAtLogin = [](bool enabled) { LaunchAtLoginHelper::setEnabled(enabled); },
        .isLaunchAtLoginEnabled = [] { return LaunchAtLoginHelper::isEnabled(); },
        // The desktop's watcher is made with the engine: whoever makes it fills this in
        // (AppSourceServices::watching). Left empty, the Advanced page says no source works.
        .appSource = {},
        .desktopComposites = [] { return kestrix::desktopComposites(); },
    };
}

PreferencesWindow::PreferencesWindow(PreferencesServices services, InputControl *input, QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint)
    , m_services(std::move(services))
    , m_input(input)
{
    setObjectName(u"preferencesWindow"_s);
    // Task switchers and screen readers need a name; the header shows the product line itself.
    setWindowTitle(QString(AppInfo::displayName));
    // Decided before the window exists: a clear background needs a visual with alpha from the
    // start.
    m_composited = m_services.desktopComposites && m_services.desktopComposites();
    if (m_composited) {
        setAttribute(Qt::WA_TranslucentBackground);
        setFixedSize(windowWidth + 2 * shadowMargin, windowHeight + 2 * shadowMargin);
    } else {
        setFixedSize(windowWidth, windowHeight);
        QPalette palette = this->palette();
        palette.setColor(QPalette::Window, AppStyle::purple);
        setPalette(palette);
        setAutoFillBackground(true);
    }
    m_controlStyle = new ControlStyle;
    m_controlStyle->setParent(this);
    setupUI();
    // Centred once; afterwards the window reappears wherever the user left it.
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

PreferencesWindow::~PreferencesWindow()
{
    // A widget's style must outlive it: the checkboxes go before the style they share.
    qDeleteAll(findChildren<QWidget *>(Qt::FindDirectChildrenOnly));
}

void PreferencesWindow::setupUI()
{
    auto *windowLayout = new QVBoxLayout(this);
    // Without compositing, one pixel of the purple window background stays visible around the
    // content: a frameless window still needs an edge against a light desktop. Every inset
    // inside is one pixel less (sideMargin - 1), so distances still count from the window's edge.
    // With compositing, the shadow gives the edge.
    if (m_composited)
        windowLayout->setContentsMargins(shadowMargin, shadowMargin, shadowMargin, shadowMargin);
    else
        windowLayout->setContentsMargins(1, 0, 1, 1);
    // Advanced page: the main page and the Advanced page take turns in the window.
    m_pages = new QStackedWidget(this);
    m_pages->setObjectName(u"pages"_s);
    m_pages->setPalette(contentPalette(QApplication::palette()));
    windowLayout->addWidget(m_pages);
    auto *background = new GradientView(m_pages);
    m_background = background;
    background->setObjectName(u"background"_s);
    background->setPalette(contentPalette(QApplication::palette()));
    background->setBand(headerHeight, AppStyle::purple);
    background->setCornerRadius(m_composited ? cornerRadius : 0.0);
    m_pages->addWidget(background);
    m_advancedPage = new AdvancedPage(m_services.appSource, m_services.sendAnalytics, m_input, m_pages);
    m_pages->addWidget(m_advancedPage);
    // Its sliders and pop-up in the window's own look, as on the main page.
    for (QWidget *control : m_advancedPage->findChildren<QSlider *>())
        control->setStyle(m_controlStyle);
    for (QWidget *control : m_advancedPage->findChildren<QComboBox *>())
        control->setStyle(m_controlStyle);
    connect(m_advancedPage, &AdvancedPage::backRequested, this, &PreferencesWindow::showMainPage);
    connect(m_advancedPage, &AdvancedPage::closeRequested, this, &PreferencesWindow::close);
    // End of the Advanced page's part.

    auto *column = new QVBoxLayout(background);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(buildHeader(background));

    auto *body = new QVBoxLayout;
    body->setContentsMargins(sideMargin - 1, cardTopGap, sideMargin - 1, 0);
    body->setSpacing(cardGap);
    body->addWidget(buildDirectionCard(background));
    body->addWidget(buildBehaviorCard(background));
    body->addWidget(buildLanguageCard(background));
    m_fit.addLayout(body);
    m_fit.addGap(body, footerGap - cardGap);
    body->addWidget(buildFooter(background));
    // Nothing ties the stack to the bottom: it ends where its contents end.
    body->addStretch(1);
    column->addLayout(body);

    // Tab runs through the controls top to bottom, then the footer link, then the header's own:
    // the engine switch and quit (when shown) and the close button.
    const QList<QWidget *> tabChain = { m_verticalCheckbox, m_horizontalCheckbox, m_diagonalCheckbox, m_advancedLink,
        m_reverseCheckbox, m_smoothCheckbox, m_momentumCheckbox, m_launchAtLoginCheckbox, m_speedSlider, m_langPopup,
        findChild<QWidget *>(u"websiteLink"_s), findChild<QWidget *>(u"headerEnabledSwitch"_s),
        findChild<QWidget *>(u"headerQuitButton"_s), findChild<QWidget *>(u"closeButton"_s) };
    for (qsizetype i = 1; i < tabChain.size(); ++i)
        setTabOrder(tabChain[i - 1], tabChain[i]);
    refreshControls();
    updateStrings();
}

QWidget *PreferencesWindow::buildHeader(QWidget *parent)
{
    auto *header = new QWidget(parent);
    header->setObjectName(u"headerBand"_s);
    // The background paints the band, so its corners can be rounded.
    header->setFixedHeight(headerHeight);

    auto *title = new QLabel(QString(headerTitle), header);
    m_titleLabel = title;
    title->setObjectName(u"titleLabel"_s);
    title->setFont(AppStyle::systemFont(titlePoints, QFont::Bold));
    setTextColor(title, Qt::white);

    m_subtitleLabel = new QLabel(header);
    m_subtitleLabel->setObjectName(u"subtitleLabel"_s);
    m_subtitleLabel->setFont(AppStyle::systemFont(subtitlePoints));
    setTextColor(m_subtitleLabel, QColor(255, 255, 255, subtitleAlpha));

    // Margins are equal on both sides: a layout does not mirror them for right-to-left languages.
    auto *text = new QVBoxLayout;
    text->setContentsMargins(sideMargin - 1, 0, sideMargin - 1, 0);
    text->setSpacing(titleToSubtitle);
    // Aligned to the leading edge as items, so a right-to-left language moves them to the right.
    text->addWidget(title, 0, Qt::AlignLeft);
    text->addWidget(m_subtitleLabel, 0, Qt::AlignLeft);
    text->addStretch(1);

    m_commandBar = new HeaderCommandBar(m_controlStyle, header);
    m_commandBar->setFont(AppStyle::systemFont(controlPoints));
    m_commandBar->setVisible(false);
    connect(m_commandBar, &HeaderCommandBar::toggleRequested, this, &PreferencesWindow::engineToggleRequested);
    connect(m_commandBar, &HeaderCommandBar::quitRequested, this, &PreferencesWindow::quitRequested);

    auto *closeButton = new CloseButton(header);
    closeButton->setObjectName(u"closeButton"_s);
    connect(closeButton, &CloseButton::clicked, this, &QWidget::close);

    // Top strip: the commands (when shown) and the close button; below it, the title block.
    auto *topStrip = new QHBoxLayout;
    topStrip->setContentsMargins(0, 0, 0, 0);
    topStrip->addStretch(1);
    topStrip->addWidget(m_commandBar, 0, Qt::AlignVCenter);
    topStrip->addSpacing(4);
    topStrip->addWidget(closeButton, 0, Qt::AlignVCenter);

    auto *layout = new QVBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto *topArea = new QWidget(header);
    m_titleArea = topArea;
    topArea->setFixedHeight(titleTop);
    auto *topAreaLayout = new QVBoxLayout(topArea);
    topAreaLayout->setContentsMargins(closeButtonInset - 1, 0, closeButtonInset - 1, 0);
    topAreaLayout->addLayout(topStrip);
    layout->addWidget(topArea);
    layout->addLayout(text);
    return header;
}

QWidget *PreferencesWindow::buildDirectionCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"directionCard"_s);
    auto *layout = cardLayout<QVBoxLayout>(card, m_fit);
    m_dirLabel = makeSectionLabel(card, u"dirLabel"_s);
    m_verticalCheckbox
        = makeCheckbox(card, u"verticalCheckbox"_s, SettingsKeys::enableVerticalScroll, "vertical_scroll"_L1);
    m_horizontalCheckbox
        = makeCheckbox(card, u"horizontalCheckbox"_s, SettingsKeys::enableHorizontalScroll, "horizontal_scroll"_L1);
    m_diagonalCheckbox = makeCheckbox(card, u"diagonalCheckbox"_s, SettingsKeys::diagonalScroll, "diagonal_scroll"_L1);
    layout->addWidget(m_dirLabel, 0, Qt::AlignLeft);
    m_fit.addGap(layout, afterSectionLabel);
    layout->addWidget(m_verticalCheckbox, 0, Qt::AlignLeft);
    m_fit.addGap(layout, betweenCheckboxes);
    layout->addWidget(m_horizontalCheckbox, 0, Qt::AlignLeft);
    m_fit.addGap(layout, betweenCheckboxes);
    layout->addWidget(m_diagonalCheckbox, 0, Qt::AlignLeft);
    return card;
}

QWidget *PreferencesWindow::buildBehaviorCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"behaviorCard"_s);
    auto *layout = cardLayout<QVBoxLayout>(card, m_fit);
    m_behLabel = makeSectionLabel(card, u"behLabel"_s);
    m_reverseCheckbox = makeCheckbox(card, u"reverseCheckbox"_s, SettingsKeys::reverseScroll, "reverse_scroll"_L1);
    m_smoothCheckbox = makeCheckbox(card, u"smoothCheckbox"_s, SettingsKeys::usePixelScrolling, "smooth_scroll"_L1);
    m_momentumCheckbox = makeCheckbox(card, u"momentumCheckbox"_s, SettingsKeys::momentumScroll, "momentum_scroll"_L1);

    // Launch at login is no setting of this store: it is the autostart entry itself.
    m_launchAtLoginCheckbox = new WrapCheckBox(card);
    m_launchAtLoginCheckbox->setObjectName(u"launchAtLoginCheckbox"_s);
    m_fit.addText(m_launchAtLoginCheckbox, controlPoints, QFont::Normal, cardContentWidth, PageFit::Wrap::TwoLines);
    m_launchAtLoginCheckbox->setStyle(m_controlStyle);
    connect(m_launchAtLoginCheckbox, &QCheckBox::clicked, this, &PreferencesWindow::launchAtLoginChanged);

    m_speedTitle = new QLabel(card);
    m_speedTitle->setObjectName(u"speedTitle"_s);
    m_fit.addText(m_speedTitle, controlPoints, QFont::Normal,
        cardContentWidth - speedTitleToSlider - minimumSliderWidth - sliderToValue - speedValueWidth,
        PageFit::Wrap::TwoLines);
    setTextColor(m_speedTitle, AppStyle::textPrimary);

    m_speedSlider = new QSlider(Qt::Horizontal, card);
    m_speedSlider->setObjectName(u"speedSlider"_s);
    m_speedSlider->setRange(
        static_cast<int>(minimumSpeed * speedSliderScale), static_cast<int>(maximumSpeed * speedSliderScale));
    // Arrow keys step by a tenth, Page Up and Down by one whole unit.
    m_speedSlider->setSingleStep(speedSliderScale / 10);
    m_speedSlider->setPageStep(speedSliderScale);
    m_speedSlider->setTickPosition(QSlider::NoTicks);
    m_speedSlider->setStyle(m_controlStyle);
    m_speedSlider->setAttribute(Qt::WA_Hover);
    // 200 wide where the title leaves room; a long title in some languages takes from the slider
    // rather than pushing the value out of the card.
    m_speedSlider->setMaximumWidth(sliderWidth);
    m_speedSlider->setMinimumWidth(minimumSliderWidth);
    m_speedSlider->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    // A drag commits once, at the release: one write and one analytics event per change the
    // user makes, not one per pixel. The value label follows the thumb while it moves.
    m_speedSlider->setTracking(false);
    connect(m_speedSlider, &QSlider::valueChanged, this, &PreferencesWindow::speedChanged);
    connect(m_speedSlider, &QSlider::sliderMoved, this,
        [this](int position) { m_speedLabel->setText(formatSpeed(static_cast<double>(position) / speedSliderScale)); });

    m_speedLabel = new QLabel(card);
    m_speedLabel->setObjectName(u"speedLabel"_s);
    // The desktop's sans fonts draw digits at one width, so the value does not wobble as it
    // changes.
    m_fit.addText(m_speedLabel, controlPoints, QFont::Medium, speedValueWidth);
    setTextColor(m_speedLabel, AppStyle::purple);
    // Room for the widest value the slider gives, so the row never shifts while dragging.
    m_speedLabel->setMinimumWidth(speedValueWidth);

    auto *speedRow = new QHBoxLayout;
    speedRow->setContentsMargins(0, 0, 0, 0);
    speedRow->setSpacing(0);
    speedRow->addWidget(m_speedTitle, 0, Qt::AlignVCenter);
    speedRow->addSpacing(speedTitleToSlider);
    speedRow->addWidget(m_speedSlider, 1, Qt::AlignVCenter);
    speedRow->addSpacing(sliderToValue);
    speedRow->addWidget(m_speedLabel, 0, Qt::AlignVCenter);
    speedRow->addStretch(0);

    // Advanced page: its link shares the heading's line, where it takes no height from the page.
    auto *headingRow = new QHBoxLayout;
    headingRow->setSpacing(langLabelToPopup);
    headingRow->addWidget(m_behLabel, 0, Qt::AlignVCenter);
    headingRow->addStretch(1);
    headingRow->addWidget(buildAdvancedLink(card), 0, Qt::AlignVCenter);
    layout->addLayout(headingRow);
    m_fit.addGap(layout, afterSectionLabel);
    for (QCheckBox *checkbox : { m_reverseCheckbox, m_smoothCheckbox, m_momentumCheckbox }) {
        layout->addWidget(checkbox, 0, Qt::AlignLeft);
        m_fit.addGap(layout, betweenCheckboxes);
    }
    layout->addWidget(m_launchAtLoginCheckbox, 0, Qt::AlignLeft);
    m_fit.addGap(layout, beforeSpeedRow);
    layout->addLayout(speedRow);
    return card;
}

QWidget *PreferencesWindow::buildLanguageCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"languageCard"_s);
    m_langLabel = makeSectionLabel(card, u"langLabel"_s);

    m_langPopup = new QComboBox(card);
    m_langPopup->setObjectName(u"langPopup"_s);
    m_langPopup->setFixedWidth(popupWidth);
    m_fit.addText(m_langPopup, controlPoints, QFont::Normal, popupWidth);
    m_langPopup->setStyle(m_controlStyle);
    m_langPopup->setAttribute(Qt::WA_Hover);
    m_langPopup->setMaxVisibleItems(16);
    roundPopupList(m_langPopup);
    // Every language is listed by its own name, in its own script, whatever the current language.
    for (const Language language : Languages::allCases)
        m_langPopup->addItem(Languages::displayName(language), QString(Languages::rawValue(language)));
    // Only a choice of the user's counts, never a selection made by the program.
    connect(m_langPopup, &QComboBox::activated, this, &PreferencesWindow::languageChanged);

    auto *layout = cardLayout<QHBoxLayout>(card, m_fit);
    layout->addWidget(m_langLabel, 0, Qt::AlignVCenter);
    layout->addSpacing(langLabelToPopup);
    layout->addWidget(m_langPopup, 0, Qt::AlignVCenter);
    layout->addStretch(1);
    return card;
}

QWidget *PreferencesWindow::buildFooter(QWidget *parent) const
{
    const QFont footerFont = AppStyle::systemFont(footerPoints);
    auto *link = new LinkButton(QString(AppInfo::website), AppStyle::purpleLight);
    link->setObjectName(u"websiteLink"_s);
    link->setFont(footerFont);
    link->setStyle(m_controlStyle);
    connect(link, &LinkButton::clicked, this, &PreferencesWindow::openWebsite);

    auto *contact = new QLabel(u" | "_s + AppInfo::contactEmail);
    contact->setObjectName(u"contactLabel"_s);
    contact->setFont(footerFont);
    contact->setTextInteractionFlags(Qt::TextSelectableByMouse);
    setTextColor(contact, AppStyle::purpleLight);

    auto *footer = new FooterRow(link, contact, parent);
    footer->setObjectName(u"footer"_s);
    return footer;
}

// Advanced page: a link in the text of the section headings, as tall as they are.
QWidget *PreferencesWindow::buildAdvancedLink(QWidget *parent)
{
    auto *link = new LinkLabel(parent);
    link->setObjectName(u"advancedLink"_s);
    m_fit.addText(link, sectionPoints, QFont::Normal, cardContentWidth / 2);
    link->setTextFormat(Qt::RichText);
    // Reached with Tab and followed with Enter, like the footer's link.
    link->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    link->setFocusPolicy(Qt::StrongFocus);
    link->setCursor(Qt::PointingHandCursor);
    connect(link, &QLabel::linkActivated, this, &PreferencesWindow::showAdvancedPage);
    m_advancedLink = link;
    return link;
}

void PreferencesWindow::showAdvancedPage()
{
    m_advancedPage->refreshControls();
    m_pages->setCurrentWidget(m_advancedPage);
    m_advancedPage->firstControl()->setFocus(Qt::OtherFocusReason);
}

void PreferencesWindow::showMainPage()
{
    m_pages->setCurrentWidget(m_background);
    // Back where the user left for the Advanced page.
    m_advancedLink->setFocus(Qt::OtherFocusReason);
}

bool PreferencesWindow::advancedPageShown() const { return m_pages->currentWidget() == m_advancedPage; }

QCheckBox *PreferencesWindow::makeCheckbox(
    QWidget *parent, const QString &objectName, QLatin1StringView key, QLatin1StringView settingName)
{
    auto *checkbox = new WrapCheckBox(parent);
    checkbox->setObjectName(objectName);
    m_fit.addText(checkbox, controlPoints, QFont::Normal, cardContentWidth, PageFit::Wrap::TwoLines);
    checkbox->setStyle(m_controlStyle);
    // clicked, not toggled: only the user's own actions write, never a refresh from the store.
    connect(checkbox, &QCheckBox::clicked, this,
        [this, checkbox, key, settingName] { checkboxChanged(checkbox, key, settingName); });
    return checkbox;
}

QLabel *PreferencesWindow::makeSectionLabel(QWidget *parent, const QString &objectName)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    // The language card's label shares its row with the pop-up.
    const bool sharesRow = objectName == "langLabel"_L1;
    m_fit.addText(label, sectionPoints, QFont::DemiBold,
        sharesRow ? cardContentWidth - langLabelToPopup - popupWidth : cardContentWidth, PageFit::Wrap::TwoLines);
    setTextColor(label, AppStyle::purple);
    return label;
}

void PreferencesWindow::showWindow()
{
    refreshControls();
    updateStrings();
    // A window opening anew starts on the main page at its first control, never on the close button.
    if (!isVisible()) {
        m_pages->setCurrentWidget(m_background);
        m_verticalCheckbox->setFocus(Qt::OtherFocusReason);
    }
    show();
    raise();
    activateWindow();
}

void PreferencesWindow::refreshControls()
{
    m_verticalCheckbox->setChecked(ScrollConfig::enableVerticalScroll());
    m_horizontalCheckbox->setChecked(ScrollConfig::enableHorizontalScroll());
    m_diagonalCheckbox->setChecked(ScrollConfig::diagonalScroll());
    m_reverseCheckbox->setChecked(ScrollConfig::reverseScroll());
    m_smoothCheckbox->setChecked(ScrollConfig::usePixelScrolling());
    m_momentumCheckbox->setChecked(ScrollConfig::momentumScroll());
    m_launchAtLoginCheckbox->setChecked(m_services.isLaunchAtLoginEnabled());

    const double speed = displayedSpeed();
    {
        // Showing the stored speed is no change of the user's: nothing is written back.
        const QSignalBlocker blocker(m_speedSlider);
        m_speedSlider->setValue(static_cast<int>(std::lround(speed * speedSliderScale)));
    }
    m_speedLabel->setText(formatSpeed(speed));
    m_langPopup->setCurrentIndex(storedLanguageIndex());
    m_advancedPage->refreshControls();
}

void PreferencesWindow::updateStrings()
{
    m_subtitleLabel->setText(L10n::subtitle());
    m_dirLabel->setText(L10n::scrollDirection());
    m_verticalCheckbox->setText(L10n::verticalScroll());
    m_horizontalCheckbox->setText(L10n::horizontalScroll());
    m_diagonalCheckbox->setText(L10n::diagonalScroll());
    m_behLabel->setText(L10n::behavior());
    m_reverseCheckbox->setText(L10n::reverseScroll());
    m_smoothCheckbox->setText(L10n::smoothScroll());
    m_momentumCheckbox->setText(L10n::momentumScroll());
    m_launchAtLoginCheckbox->setText(L10n::launchAtLogin());
    m_speedTitle->setText(L10n::scrollSpeed());
    m_langLabel->setText(L10n::languageLabel());
    m_speedSlider->setAccessibleName(L10n::scrollSpeed());
    m_langPopup->setAccessibleName(L10n::languageLabel());
    m_commandBar->setTexts(L10n::enabled(), L10n::quit());
    m_advancedLink->setText(u"<a href=\"advanced\" style=\"color: %1;\">%2</a>"_s.arg(
        AppStyle::purpleLight.name(), L10n::advanced().toHtmlEscaped()));
    m_advancedLink->setAccessibleName(L10n::advanced());
    m_advancedPage->updateStrings();
    // A right-to-left language mirrors the window, as its readers expect; the footer's address
    // and e-mail stay left to right.
    setLayoutDirection(languageDirection());
    fitTextToWindow();
}

void PreferencesWindow::fitTextToWindow()
{
    // The page inside the window's 1 pixel edge, or the whole content when compositing.
    m_fit.fit(m_background, m_composited ? QSize(windowWidth, windowHeight) : QSize(windowWidth - 2, windowHeight - 1));

    // The subtitle takes a second line rather than getting smaller, and the title block keeps to
    // the band's height: a tall script lifts the block into the top strip.
    const int subtitleWidth = windowWidth - 2 * sideMargin;
    m_subtitleLabel->setWordWrap(false);
    m_subtitleLabel->setMinimumWidth(0);
    m_subtitleLabel->setMaximumWidth(QWIDGETSIZE_MAX);
    if (m_subtitleLabel->sizeHint().width() > subtitleWidth) {
        m_subtitleLabel->setWordWrap(true);
        m_subtitleLabel->setFixedWidth(subtitleWidth);
    }
    const int subtitleHeight = m_subtitleLabel->wordWrap() ? m_subtitleLabel->heightForWidth(subtitleWidth)
                                                           : m_subtitleLabel->sizeHint().height();
    const int titleBlock = m_titleLabel->sizeHint().height() + titleToSubtitle + subtitleHeight;
    m_titleArea->setFixedHeight(std::clamp(headerHeight - titleBlock, minimumTitleTop, titleTop));
    PageFit::activateLayouts(this);
}

Qt::LayoutDirection PreferencesWindow::languageDirection()
{
    return QLocale(QString(Languages::rawValue(Languages::current()))).textDirection();
}

void PreferencesWindow::setCommandsVisible(bool visible) { m_commandBar->setVisible(visible); }

bool PreferencesWindow::commandsVisible() const { return !m_commandBar->isHidden(); }

void PreferencesWindow::setEngineEnabled(bool enabled) { m_commandBar->setEngineEnabled(enabled); }

double PreferencesWindow::displayedSpeed()
{
    const double stored = SettingsStore::shared().doubleValue(SettingsKeys::scrollSpeed);
    return stored > 0.0 ? stored : ScrollConfig::defaultScrollSpeed;
}

int PreferencesWindow::storedLanguageIndex()
{
    const QString code = SettingsStore::shared().stringValue(SettingsKeys::language).value_or(u"en"_s);
    const Language language = Languages::fromRawValue(code).value_or(Languages::allCases.front());
    const auto *position = std::find(Languages::allCases.begin(), Languages::allCases.end(), language);
    if (position == Languages::allCases.end())
        return 0;
    return static_cast<int>(position - Languages::allCases.begin());
}

QString PreferencesWindow::formatSpeed(double speed)
{
    // "%.1f" as in the C locale, whatever the system's number format: a dot in every language,
    // and the rounding of the exact binary value (7.25 gives "7.2") that the label and the
    // analytics value both promise. Qt's own formatting rounds ties up.
    std::array<char, 32> text {};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), speed, std::chars_format::fixed, 1);
    if (error != std::errc())
        return u"0.0"_s;
    return QString::fromLatin1(text.data(), end - text.data());
}

void PreferencesWindow::checkboxChanged(QCheckBox *checkbox, QLatin1StringView key, QLatin1StringView settingName)
{
    // A partly checked box counts as off.
    const bool on = checkbox->checkState() == Qt::Checked;
    SettingsStore::shared().setValue(key, on);
    sendSettingChanged(settingName, on ? u"true"_s : u"false"_s);
}

void PreferencesWindow::launchAtLoginChanged()
{
    const bool on = m_launchAtLoginCheckbox->checkState() == Qt::Checked;
    // Not corrected here if the autostart entry cannot be written: the next showWindow shows
    // the real state again.
    m_services.setLaunchAtLogin(on);
    sendSettingChanged("launch_at_login"_L1, on ? u"true"_s : u"false"_s);
}

void PreferencesWindow::speedChanged(int sliderValue)
{
    const double speed = static_cast<double>(sliderValue) / speedSliderScale;
    SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, speed);
    const QString shown = formatSpeed(speed);
    m_speedLabel->setText(shown);
    sendSettingChanged("scroll_speed"_L1, shown);
}

void PreferencesWindow::languageChanged(int index)
{
    const QString code = languageCodeAt(index);
    SettingsStore::shared().setValue(SettingsKeys::language, code);
    updateStrings();
    LanguageNotifier::instance().post();
    m_services.sendAnalytics(u"language_changed"_s, QJsonObject { { u"language"_s, code } });
}

void PreferencesWindow::openWebsite()
{
    const QUrl url(QString(AppInfo::website), QUrl::StrictMode);
    if (url.isValid())
        QDesktopServices::openUrl(url);
}

void PreferencesWindow::sendSettingChanged(QLatin1StringView settingName, const QString &value) const
{
    m_services.sendAnalytics(
        u"setting_changed"_s, QJsonObject { { u"setting_name"_s, QString(settingName) }, { u"value"_s, value } });
}

void PreferencesWindow::paintEvent(QPaintEvent *event)
{
    if (!m_composited) {
        QWidget::paintEvent(event);
        return;
    }
    // A soft shadow, a little below the content: rings of fading purple-grey, each one pixel
    // further out.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF content = QRectF(rect()).adjusted(shadowMargin, shadowMargin, -shadowMargin, -shadowMargin);
    constexpr qreal drop = 3.0;
    constexpr int strongest = 46; // alpha next to the content
    const auto outline = [&content](qreal grow) {
        QPainterPath path;
        path.addRoundedRect(
            content.adjusted(-grow, -grow + drop, grow, grow + drop), cornerRadius + grow, cornerRadius + grow);
        return path;
    };
    const int reach = shadowMargin - 2;
    for (int ring = 0; ring < reach; ++ring) {
        const double fade = 1.0 - static_cast<double>(ring) / reach;
        QColor colour(40, 36, 80);
        colour.setAlpha(static_cast<int>(strongest * fade * fade));
        painter.fillPath(outline(ring + 1).subtracted(outline(ring)), colour);
    }
}

void PreferencesWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        // Escape leaves the Advanced page first, then the window.
        if (advancedPageShown())
            showMainPage();
        else
            close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PreferencesWindow::mousePressEvent(QMouseEvent *event)
{
    // Presses that reach the window fell on its bare background: the header band, the gradient,
    // a card or a label. They move the window, as a title bar would.
    if (event->button() != Qt::LeftButton || !m_background->geometry().contains(event->position().toPoint())) {
        QWidget::mousePressEvent(event);
        return;
    }
    QWindow *handle = windowHandle();
    if (handle != nullptr && handle->startSystemMove()) {
        event->accept();
        return;
    }
    m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
    event->accept();
}

void PreferencesWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragOffset && event->buttons().testFlag(Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - *m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void PreferencesWindow::mouseReleaseEvent(QMouseEvent *event)
{
    m_dragOffset.reset();
    QWidget::mouseReleaseEvent(event);
}

} // namespace kestrix
