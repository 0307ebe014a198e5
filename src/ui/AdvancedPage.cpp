#include "ui/AdvancedPage.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/ScrollConfig.h"
#include "l10n/L10n.h"
#include "session/AppMatcher.h"
#include "session/AppUnderPointer.h"
#include "session/GnomeShellExtension.h"
#include "ui/AdvancedControls.h"
#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"
#include "ui/PreferencesWindow.h"
#include "ui/WindowChrome.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSlider>
#include <QStyleOptionComboBox>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

// The layout, in logical pixels; the same margins as the main page.
constexpr int sideMargin = 24; // window edge to card, card edge to its contents
constexpr int cardTopGap = 12; // header band to the first card
constexpr int bottomMargin = 16; // last card to the window's bottom edge
constexpr int cardGap = 8; // between cards
constexpr int cardInnerMargin = 10; // card top and bottom to its first and last row
constexpr int afterSectionLabel = 4; // section label to its list
constexpr int rowGap = 10; // between the rows of the scrolling card
constexpr int titleToControl = 12; // a row's title to its control
constexpr int captionToSlider = 6; // "Short" and "Long", and the threshold's value, to the slider
constexpr int titleToSlider = 2; // a slider's title to the slider
constexpr int popupWidth = 160; // as the main page's language pop-up, where its names fit
constexpr int minimumTitleWidth = 96; // the pop-up's title keeps this much of the row
constexpr int cardContentWidth = PreferencesWindow::windowWidth - 4 * sideMargin;
constexpr int valueWidth = 38; // room kept for "20 pt"
constexpr int headerButtonInset = 8; // header edge to the back and close buttons
constexpr int visibleMice = 2; // rows the mice list shows before it scrolls
constexpr int minimumVisibleApps = 2; // rows the apps list keeps, however tall the texts
constexpr int beforeAddButton = 8; // apps list to the add button

// Font sizes, in the design's points (logical pixels).
constexpr int headerTitlePoints = 15;
constexpr int controlPoints = 13;
constexpr int sectionPoints = 12;
constexpr int captionPoints = 11;
// Texts first wrap, then shrink a pixel at a time, never below this.
constexpr int minimumTextSize = 11;

constexpr double defaultGlide = 0.97;
const QColor secondaryText(128, 126, 150); // "Not connected", an unplugged mouse's name

constexpr std::array<TriggerButton, 4> buttonOrder { TriggerButton::Secondary, TriggerButton::Middle,
    TriggerButton::Back, TriggerButton::Forward };

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::Text, color);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, secondaryText);
    widget->setPalette(palette);
}

// A card's rows sit 24 in from its sides, with no spacing of their own.
template<typename Layout> Layout *cardLayout(CardView *card)
{
    auto *layout = new Layout(card);
    layout->setContentsMargins(sideMargin, cardInnerMargin, sideMargin, cardInnerMargin);
    layout->setSpacing(0);
    return layout;
}

// A pill-shaped button in the window's purple, outlined on white.
const QString pillStyle = u"QPushButton { color: rgb(96, 92, 168); background: white;"
                          " border: 1px solid rgba(96, 92, 168, 140); border-radius: 11px; padding: 3px 12px; }"
                          " QPushButton:hover { background: rgb(244, 243, 251); }"
                          " QPushButton:pressed { background: rgb(230, 228, 244); }"
                          " QPushButton:focus { border: 2px solid rgb(123, 120, 184); padding: 2px 11px; }"
                          " QPushButton:disabled { color: rgb(150, 148, 190); border-color: rgb(216, 214, 234); }"_s;

// A thin scroll bar in a light purple that leaves the white card white.
const QString listStyle = u"QScrollArea { background: transparent; border: none; }"
                          " QScrollBar:vertical { width: 6px; background: transparent; margin: 0; }"
                          " QScrollBar::handle:vertical { background: rgba(96, 92, 168, 70); border-radius: 3px;"
                          " min-height: 18px; }"
                          " QScrollBar::handle:vertical:hover { background: rgba(96, 92, 168, 130); }"
                          " QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
                          " QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }"_s;

// "%.2f" as in the C locale, as the speed: a dot whatever the system's number format.
QString formatGlide(double glide)
{
    std::array<char, 16> text {};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), glide, std::chars_format::fixed, 2);
    return error == std::errc() ? QString::fromLatin1(text.data(), end - text.data()) : u"0.00"_s;
}

// A list inside a card that asks for as many rows as it should show, and for its banner above the
// rows when it has one, and takes the rest the card gives it. Short of room it keeps one row.
class ListArea final : public QScrollArea
{
public:
    using QScrollArea::QScrollArea;
    int wantedRows = 1;
    QWidget *banner = nullptr;
    bool asksForBanner = true; // false: the banner scrolls with the rows when the page is short
    QSize sizeHint() const override
    {
        const bool showsBanner = asksForBanner && banner != nullptr && !banner->isHidden();
        return { 0, wantedRows * ListRow::height + (showsBanner ? banner->heightForWidth(cardContentWidth) : 0) };
    }
    QSize minimumSizeHint() const override { return { 0, ListRow::height }; }
};

} // namespace

AppSourceServices AppSourceServices::watching(AppUnderPointer &watcher)
{
    QPointer<AppUnderPointer> source(&watcher);
    return {
        .status =
            [source] {
                const AppUnderPointer *watched = source.data();
                if (watched == nullptr)
                    return AppSourceStatus::Missing;
                switch (watched->remedy()) {
                case AppUnderPointer::Remedy::None:
                case AppUnderPointer::Remedy::Checking:
                    return AppSourceStatus::Working;
                case AppUnderPointer::Remedy::GnomeEnableExtension:
                    return AppSourceStatus::GnomeExtensionOff;
                case AppUnderPointer::Remedy::GnomeInstallExtension:
                case AppUnderPointer::Remedy::GnomeLogInAgain:
                case AppUnderPointer::Remedy::GnomeExtensionFailed:
                case AppUnderPointer::Remedy::UnsupportedWaylandDesktop:
                case AppUnderPointer::Remedy::DesktopUnreachable:
                case AppUnderPointer::Remedy::NoDisplay:
                    return AppSourceStatus::Missing;
                }
                return AppSourceStatus::Missing;
            },
        .watchStatus =
            [source](QObject *context, std::function<void()> changed) {
                if (!source.isNull())
                    QObject::connect(source.data(), &AppUnderPointer::availabilityChanged, context, std::move(changed));
            },
        .lookUpOnce =
            [source](std::function<void(const QString &)> done) {
                AppUnderPointer *watched = source.data();
                if (watched == nullptr) {
                    done(QString());
                    return;
                }
                watched->lookUpOnce([done = std::move(done)](std::optional<WindowApp> app) {
                    // The id (class) names the app; an X11 window without a class has its instance.
                    done(!app ? QString() : !app->appId.isEmpty() ? app->appId : app->instance);
                });
            },
        .enableGnomeExtension =
            [source](std::function<void(bool)> done) {
                if (source.isNull()) {
                    done(false);
                    return;
                }
                GnomeShellExtension::enable(source.data(), [source, done = std::move(done)](bool enabled) {
                    if (AppUnderPointer *watched = source.data(); enabled && watched != nullptr)
                        watched->refresh();
                    done(enabled);
                });
            },
    };
}

AdvancedPage::AdvancedPage(AppSourceServices appSource, Analytics sendAnalytics, InputControl *input, QWidget *parent)
    : QWidget(parent)
    , m_appSource(std::move(appSource))
    , m_sendAnalytics(std::move(sendAnalytics))
    , m_input(input)
{
    setObjectName(u"advancedPage"_s);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *background = new GradientView(this);
    m_background = background;
    outer->addWidget(background);

    auto *column = new QVBoxLayout(background);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(buildHeader(background));
    auto *body = new QVBoxLayout;
    // The window keeps one pixel of its purple edge around the page: insets count from the window.
    body->setContentsMargins(sideMargin - 1, cardTopGap, sideMargin - 1, bottomMargin - 1);
    body->setSpacing(cardGap);
    body->addWidget(buildScrollingCard(background));
    body->addWidget(buildMiceCard(background));
    // The apps card takes what is left, down to the bottom margin.
    body->addWidget(buildAppsCard(background), 1);
    column->addLayout(body, 1);

    m_countdownTimer = new QTimer(this);
    m_countdownTimer->setInterval(m_appSource.countdownStep);
    connect(m_countdownTimer, &QTimer::timeout, this, &AdvancedPage::countdownTick);
    if (m_input != nullptr)
        connect(m_input, &InputControl::miceChanged, this, &AdvancedPage::rebuildMice);
    if (m_appSource.watchStatus)
        m_appSource.watchStatus(this, [this] { refreshAppSource(); });
    refreshControls();
    updateStrings();
}

AdvancedPage::~AdvancedPage() = default;

QWidget *AdvancedPage::buildHeader(QWidget *parent)
{
    auto *header = new QWidget(parent);
    header->setObjectName(u"advancedHeader"_s);
    header->setFixedHeight(headerHeight);
    header->setAutoFillBackground(true);
    QPalette palette = header->palette();
    palette.setColor(QPalette::Window, AppStyle::purple);
    header->setPalette(palette);

    m_backButton = new BackButton(header);
    m_backButton->setObjectName(u"backButton"_s);
    connect(m_backButton, &BackButton::clicked, this, &AdvancedPage::backRequested);
    m_titleLabel = new QLabel(header);
    m_titleLabel->setObjectName(u"advancedTitle"_s);
    setTextColor(m_titleLabel, Qt::white);
    // The page's name keeps its size: the header has room for it in every language.
    m_titleLabel->setFont(AppStyle::systemFont(headerTitlePoints, QFont::DemiBold));
    m_closeButton = new CloseButton(header);
    m_closeButton->setObjectName(u"advancedCloseButton"_s);
    connect(m_closeButton, &CloseButton::clicked, this, &AdvancedPage::closeRequested);

    // The buttons sit where the main page's close button sits, so it does not move between pages;
    // centred in the band, they keep their inset from its top while the title, in a tall script,
    // takes the band's whole height.
    auto *layout = new QHBoxLayout(header);
    layout->setContentsMargins(headerButtonInset, 0, headerButtonInset, 0);
    layout->setSpacing(4);
    layout->addWidget(m_backButton, 0, Qt::AlignVCenter);
    layout->addWidget(m_titleLabel, 1, Qt::AlignVCenter);
    layout->addWidget(m_closeButton, 0, Qt::AlignVCenter);
    return header;
}

QLabel *AdvancedPage::makeLabel(QWidget *parent, const QString &objectName, int size, QFont::Weight weight, bool wrap)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setWordWrap(wrap);
    m_texts.push_back({ label, size, weight });
    return label;
}

QWidget *AdvancedPage::buildScrollingCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"scrollingCard"_s);

    m_buttonTitle = makeLabel(card, u"buttonTitle"_s, controlPoints, QFont::Normal, true);
    m_buttonPopup = new QComboBox(card);
    m_buttonPopup->setObjectName(u"buttonPopup"_s);
    m_texts.push_back({ m_buttonPopup, controlPoints, QFont::Normal });
    for (const TriggerButton button : buttonOrder)
        m_buttonPopup->addItem(QString(), QString(ScrollConfig::triggerButtonName(button)));
    // Only a choice of the user's writes, never a selection made by the program.
    connect(m_buttonPopup, &QComboBox::activated, this, &AdvancedPage::triggerButtonChosen);

    m_thresholdTitle = makeLabel(card, u"thresholdTitle"_s, controlPoints, QFont::Normal, true);
    m_thresholdSlider = new QSlider(Qt::Horizontal, card);
    m_thresholdSlider->setObjectName(u"thresholdSlider"_s);
    m_thresholdSlider->setRange(
        static_cast<int>(ScrollConfig::minimumDragThreshold), static_cast<int>(ScrollConfig::maximumDragThreshold));
    m_thresholdSlider->setPageStep(5);
    // As the main page's speed: the value commits at the release and the label follows the thumb.
    m_thresholdSlider->setTracking(false);
    connect(m_thresholdSlider, &QSlider::valueChanged, this, &AdvancedPage::thresholdChanged);
    connect(m_thresholdSlider, &QSlider::sliderMoved, this,
        [this](int points) { m_thresholdValue->setText(L10n::pointsValue(points)); });
    m_thresholdValue = makeLabel(card, u"thresholdValue"_s, controlPoints, QFont::Medium, false);
    setTextColor(m_thresholdValue, AppStyle::purple);
    m_thresholdValue->setMinimumWidth(valueWidth);

    m_glideTitle = makeLabel(card, u"glideTitle"_s, controlPoints, QFont::Normal, true);
    auto *glide = new QSlider(Qt::Horizontal);
    glide->setObjectName(u"glideSlider"_s);
    glide->setRange(static_cast<int>(std::lround(ScrollConfig::minimumMomentumGlide * glideSliderScale)),
        static_cast<int>(std::lround(ScrollConfig::maximumMomentumGlide * glideSliderScale)));
    glide->setPageStep(3);
    glide->setTracking(false);
    connect(glide, &QSlider::valueChanged, this, &AdvancedPage::glideChanged);
    m_glideSlider = new MarkedSlider(glide, static_cast<int>(std::lround(defaultGlide * glideSliderScale)), card);
    m_glideSlider->setObjectName(u"glideMarkedSlider"_s);
    m_texts.push_back({ m_glideSlider->caption(), captionPoints, QFont::Normal });
    m_glideShort = makeLabel(card, u"glideShort"_s, captionPoints, QFont::Normal, false);
    m_glideLong = makeLabel(card, u"glideLong"_s, captionPoints, QFont::Normal, false);
    for (QLabel *caption : { m_glideShort, m_glideLong })
        setTextColor(caption, AppStyle::purpleLight);

    // The pop-up beside its title; each slider under its title, across the whole card, so both
    // get the card's full width for their steps and a long title never squeezes them.
    auto *buttonRow = new QHBoxLayout;
    buttonRow->setSpacing(titleToControl);
    buttonRow->addWidget(m_buttonTitle, 1);
    buttonRow->addWidget(m_buttonPopup, 0, Qt::AlignVCenter);
    auto *thresholdRow = new QHBoxLayout;
    thresholdRow->setSpacing(titleToControl);
    thresholdRow->addWidget(m_thresholdTitle, 1, Qt::AlignBottom);
    thresholdRow->addWidget(m_thresholdValue, 0, Qt::AlignBottom);
    m_thresholdValue->setAlignment(Qt::AlignTrailing | Qt::AlignVCenter);
    auto *glideRow = new QHBoxLayout;
    glideRow->setSpacing(captionToSlider);
    glideRow->addWidget(m_glideShort, 0, Qt::AlignTop);
    glideRow->addWidget(m_glideSlider, 1);
    glideRow->addWidget(m_glideLong, 0, Qt::AlignTop);
    // "Short" and "Long" stand level with the slider's groove, or a script taller than the
    // groove centres on it.
    const int sliderHeight = m_glideSlider->slider()->sizeHint().height();
    for (QLabel *caption : { m_glideShort, m_glideLong }) {
        caption->setMinimumHeight(sliderHeight);
        caption->setAlignment(Qt::AlignVCenter);
    }

    auto *layout = cardLayout<QVBoxLayout>(card);
    layout->addLayout(buttonRow);
    layout->addSpacing(rowGap);
    layout->addLayout(thresholdRow);
    layout->addSpacing(titleToSlider);
    layout->addWidget(m_thresholdSlider);
    layout->addSpacing(rowGap);
    layout->addWidget(m_glideTitle);
    layout->addSpacing(titleToSlider);
    layout->addLayout(glideRow);
    return card;
}

QScrollArea *AdvancedPage::makeListArea(QWidget *parent, const QString &objectName)
{
    auto *area = new ListArea(parent);
    area->setObjectName(objectName);
    area->setStyleSheet(listStyle);
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The list itself is no stop of the Tab key: its rows' controls are.
    area->setFocusPolicy(Qt::NoFocus);
    auto *rows = new QWidget;
    rows->setObjectName(objectName + u"Rows"_s);
    auto *layout = new QVBoxLayout(rows);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addStretch(1);
    area->setWidget(rows);
    // The card's white shows through the list (setWidget made the rows paint their own).
    rows->setAutoFillBackground(false);
    area->viewport()->setAutoFillBackground(false);
    return area;
}

QWidget *AdvancedPage::buildMiceCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"miceCard"_s);
    m_miceLabel = makeLabel(card, u"miceLabel"_s, sectionPoints, QFont::DemiBold, true);
    setTextColor(m_miceLabel, AppStyle::purple);
    m_miceArea = makeListArea(card, u"miceList"_s);
    m_miceRows = qobject_cast<QVBoxLayout *>(m_miceArea->widget()->layout());
    auto *layout = cardLayout<QVBoxLayout>(card);
    layout->addWidget(m_miceLabel);
    layout->addSpacing(afterSectionLabel);
    layout->addWidget(m_miceArea);
    return card;
}

QWidget *AdvancedPage::buildAppsCard(QWidget *parent)
{
    auto *card = new CardView(parent);
    card->setObjectName(u"appsCard"_s);
    m_appsLabel = makeLabel(card, u"appsLabel"_s, sectionPoints, QFont::DemiBold, true);
    setTextColor(m_appsLabel, AppStyle::purple);
    m_appsArea = makeListArea(card, u"appsList"_s);
    static_cast<ListArea *>(m_appsArea)->wantedRows = minimumVisibleApps;
    m_appsArea->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Expanding);
    m_appsRows = qobject_cast<QVBoxLayout *>(m_appsArea->widget()->layout());

    m_addAppButton = new QPushButton(card);
    m_addAppButton->setObjectName(u"addAppButton"_s);
    m_addAppButton->setStyleSheet(pillStyle);
    m_addAppButton->setCursor(Qt::PointingHandCursor);
    m_texts.push_back({ m_addAppButton, sectionPoints, QFont::Medium });
    connect(m_addAppButton, &QPushButton::clicked, this, &AdvancedPage::startCountdown);
    m_addAppStatus = makeLabel(card, u"addAppStatus"_s, captionPoints, QFont::Normal, true);
    setTextColor(m_addAppStatus, AppStyle::purple);
    m_addAppStatus->hide();

    // Where no desktop source tells the app under the pointer: what is missing and what helps.
    // It heads the list, on a tint of its own, and scrolls with it where a language needs more
    // lines than the page has.
    m_sourceNote = new QWidget(m_appsArea->widget());
    m_sourceNote->setObjectName(u"sourceNote"_s);
    static_cast<ListArea *>(m_appsArea)->banner = m_sourceNote;
    auto *tint = new QWidget(m_sourceNote);
    tint->setObjectName(u"sourceNoteTint"_s);
    tint->setAttribute(Qt::WA_StyledBackground);
    tint->setStyleSheet(u"QWidget#sourceNoteTint { background: rgb(244, 243, 251); border-radius: 8px; }"_s);
    auto *outer = new QVBoxLayout(m_sourceNote);
    outer->setContentsMargins(0, 0, 0, 6);
    outer->addWidget(tint);
    m_sourceMissing = makeLabel(tint, u"sourceMissing"_s, captionPoints, QFont::DemiBold, true);
    setTextColor(m_sourceMissing, AppStyle::textPrimary);
    m_sourceHint = makeLabel(tint, u"sourceHint"_s, captionPoints, QFont::Normal, true);
    setTextColor(m_sourceHint, secondaryText);
    m_gnomeButton = new QPushButton(tint);
    m_gnomeButton->setObjectName(u"gnomeExtensionButton"_s);
    m_gnomeButton->setStyleSheet(pillStyle);
    m_gnomeButton->setCursor(Qt::PointingHandCursor);
    m_texts.push_back({ m_gnomeButton, captionPoints, QFont::Medium });
    connect(m_gnomeButton, &QPushButton::clicked, this, &AdvancedPage::enableGnomeExtension);
    auto *note = new QVBoxLayout(tint);
    note->setContentsMargins(10, 8, 10, 10);
    note->setSpacing(2);
    note->addWidget(m_sourceMissing);
    note->addWidget(m_sourceHint);
    note->addSpacing(4);
    note->addWidget(m_gnomeButton, 0, Qt::AlignLeading);

    auto *layout = cardLayout<QVBoxLayout>(card);
    layout->addWidget(m_appsLabel);
    layout->addSpacing(afterSectionLabel);
    layout->addWidget(m_appsArea, 1);
    layout->addSpacing(beforeAddButton);
    layout->addWidget(m_addAppButton, 0, Qt::AlignLeading);
    layout->addSpacing(4);
    layout->addWidget(m_addAppStatus);
    m_appsRows->insertWidget(0, m_sourceNote);
    return card;
}

QStringList AdvancedPage::storedExcludedApps()
{
    return AppMatcher::patternsFromSetting(SettingsStore::shared().value(SettingsKeys::excludedApps));
}

std::vector<MouseInfo> AdvancedPage::listedMice(
    const std::vector<MouseInfo> &known, const std::vector<MouseIdentity> &switchedOff)
{
    std::vector<MouseInfo> listed = known;
    for (const MouseIdentity &mouse : switchedOff) {
        const bool seen = std::any_of(
            listed.begin(), listed.end(), [&mouse](const MouseInfo &info) { return info.identity == mouse; });
        if (!seen)
            listed.push_back({ .identity = mouse, .connected = false, .active = false });
    }
    return listed;
}

void AdvancedPage::refreshControls()
{
    const ScrollSettings settings = ScrollConfig::snapshot();
    const auto *chosen = std::find(buttonOrder.begin(), buttonOrder.end(), settings.triggerButton);
    m_buttonPopup->setCurrentIndex(static_cast<int>(chosen - buttonOrder.begin()));
    {
        // Showing the stored values is no change of the user's: nothing is written back.
        const QSignalBlocker thresholdBlocker(m_thresholdSlider);
        const QSignalBlocker glideBlocker(m_glideSlider->slider());
        m_thresholdSlider->setValue(static_cast<int>(std::lround(settings.dragThreshold)));
        m_glideSlider->slider()->setValue(static_cast<int>(std::lround(settings.momentumGlide * glideSliderScale)));
    }
    m_thresholdValue->setText(L10n::pointsValue(m_thresholdSlider->value()));
    rebuildMice();
    rebuildApps();
    refreshAppSource();
}

void AdvancedPage::rebuildMice()
{
    qDeleteAll(m_miceArea->widget()->findChildren<QWidget *>(Qt::FindDirectChildrenOnly));
    m_mouseSwitches.clear();
    const std::vector<MouseIdentity> switchedOff = ScrollConfig::disabledMice();
    const std::vector<MouseInfo> mice
        = listedMice(m_input != nullptr ? m_input->mice() : std::vector<MouseInfo> {}, switchedOff);
    int index = 0;
    for (const MouseInfo &mouse : mice) {
        auto *row = new ListRow(index > 0);
        row->setObjectName(u"mouseRow%1"_s.arg(index));
        // A mouse without a name is known by its vendor and product ids, as lsusb shows them.
        const MouseIdentity &id = mouse.identity;
        const QString shown = !id.name.isEmpty()
            ? id.name
            : u"%1:%2"_s.arg(id.vendor, 4, 16, QChar(u'0')).arg(id.product, 4, 16, QChar(u'0'));
        auto *name = new ElidedLabel(shown, row);
        name->setObjectName(u"mouseName"_s);
        name->setFont(AppStyle::systemFont(controlPoints));
        // An unplugged mouse stays in the list, greyed, with its switch still working.
        setTextColor(name, mouse.connected ? QColor(29, 29, 31) : secondaryText);
        auto *toggle = new ToggleSwitch(row);
        toggle->setObjectName(u"mouseSwitch"_s);
        toggle->setAccessibleName(name->text());
        toggle->setChecked(std::find(switchedOff.begin(), switchedOff.end(), mouse.identity) == switchedOff.end());
        const MouseIdentity identity = mouse.identity;
        connect(toggle, &ToggleSwitch::clicked, this, [this, identity](bool on) { mouseSwitched(identity, on); });
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(8);
        layout->addWidget(name, 1);
        if (!mouse.connected) {
            auto *away = new QLabel(L10n::notConnected(), row);
            away->setObjectName(u"notConnected"_s);
            away->setFont(AppStyle::systemFont(captionPoints));
            setTextColor(away, secondaryText);
            layout->addWidget(away);
        }
        layout->addWidget(toggle);
        m_miceRows->insertWidget(index, row);
        m_mouseSwitches.append(toggle);
        ++index;
    }
    if (mice.empty()) {
        auto *row = new ListRow(false);
        auto *none = new QLabel(L10n::noMouseConnected(), row);
        none->setObjectName(u"noMouse"_s);
        none->setFont(AppStyle::systemFont(controlPoints));
        setTextColor(none, secondaryText);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(none);
        m_miceRows->insertWidget(0, row);
    }
    static_cast<ListArea *>(m_miceArea)->wantedRows = std::clamp(static_cast<int>(mice.size()), 1, visibleMice);
    updateTabOrder();
    fitTextToPage();
}

void AdvancedPage::rebuildApps()
{
    qDeleteAll(m_appsArea->widget()->findChildren<ListRow *>(Qt::FindDirectChildrenOnly));
    m_removeButtons.clear();
    // After the note.
    constexpr int firstRow = 1;
    int index = 0;
    for (const QString &app : storedExcludedApps()) {
        auto *row = new ListRow(index > 0);
        row->setObjectName(u"appRow%1"_s.arg(index));
        auto *name = new ElidedLabel(app, row);
        name->setObjectName(u"appName"_s);
        name->setFont(AppStyle::systemFont(controlPoints));
        setTextColor(name, QColor(29, 29, 31));
        auto *remove = new RemoveButton(row);
        remove->setObjectName(u"removeAppButton"_s);
        remove->setAccessibleName(L10n::remove() + u": "_s + app);
        remove->setToolTip(L10n::remove());
        connect(remove, &RemoveButton::clicked, this, [this, app] { removeApp(app); });
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(8);
        layout->addWidget(name, 1);
        layout->addWidget(remove);
        m_appsRows->insertWidget(firstRow + index, row);
        m_removeButtons.append(remove);
        ++index;
    }
    updateTabOrder();
}

void AdvancedPage::refreshAppSource()
{
    const AppSourceStatus status = m_appSource.status ? m_appSource.status() : AppSourceStatus::Missing;
    const bool working = status == AppSourceStatus::Working && m_appSource.lookUpOnce;
    const bool wasWorking = m_sourceNote->isHidden();
    // With nothing to look up with, the note takes the add button's place.
    m_sourceNote->setVisible(!working);
    m_gnomeButton->setVisible(status == AppSourceStatus::GnomeExtensionOff && m_appSource.enableGnomeExtension);
    m_gnomeButton->setEnabled(true);
    m_addAppButton->setVisible(working);
    m_addAppButton->setEnabled(m_countdown == 0);
    if (!working)
        m_addAppStatus->hide();
    static_cast<ListArea *>(m_appsArea)->wantedRows = working ? minimumVisibleApps : 1;
    m_appsArea->updateGeometry();
    if (working != wasWorking)
        fitTextToPage();
}

void AdvancedPage::updateTabOrder()
{
    QList<QWidget *> chain { m_buttonPopup, m_thresholdSlider, m_glideSlider->slider() };
    chain += m_mouseSwitches;
    chain.append(m_gnomeButton); // heads the apps list, where it shows at all
    chain += m_removeButtons;
    chain += { m_addAppButton, m_backButton, m_closeButton };
    for (qsizetype i = 1; i < chain.size(); ++i)
        setTabOrder(chain[i - 1], chain[i]);
}

QWidget *AdvancedPage::firstControl() const { return m_buttonPopup; }

void AdvancedPage::updateStrings()
{
    // The link's "Advanced..." names the page without the dots that promise more to come.
    QString title = L10n::advanced();
    while (title.endsWith(u'.') || title.endsWith(u'…'))
        title.chop(1);
    m_titleLabel->setText(title);
    m_backButton->setAccessibleName(L10n::back());
    m_backButton->setToolTip(L10n::back());
    m_buttonTitle->setText(L10n::scrollButton());
    const std::array<QString, 4> buttonNames { L10n::secondaryButton(), L10n::middleButton(), L10n::backButton(),
        L10n::forwardButton() };
    for (std::size_t i = 0; i < buttonNames.size(); ++i)
        m_buttonPopup->setItemText(static_cast<int>(i), buttonNames[i]);
    m_buttonPopup->setAccessibleName(L10n::scrollButton());
    m_thresholdTitle->setText(L10n::dragThreshold());
    m_thresholdSlider->setAccessibleName(L10n::dragThreshold());
    m_thresholdValue->setText(L10n::pointsValue(m_thresholdSlider->value()));
    m_glideTitle->setText(L10n::glide());
    m_glideSlider->slider()->setAccessibleName(L10n::glide());
    m_glideShort->setText(L10n::glideShort());
    m_glideLong->setText(L10n::glideLong());
    m_glideSlider->setCaption(L10n::defaultMark());
    m_miceLabel->setText(L10n::mice());
    m_appsLabel->setText(L10n::excludedApps());
    if (m_countdown == 0)
        m_addAppButton->setText(L10n::addAppUnderPointer());
    m_sourceMissing->setText(L10n::appSourceMissing());
    m_sourceHint->setText(L10n::appSourceHint());
    m_gnomeButton->setText(L10n::enableGnomeExtension());
    // The rows carry translated words too ("Not connected", "Remove").
    rebuildMice();
    rebuildApps();
    fitTextToPage();
}

void AdvancedPage::applyFont(QWidget *widget, int size, QFont::Weight weight) const
{
    widget->setFont(AppStyle::systemFont(std::max(minimumTextSize, size - m_shrink), weight));
}

void AdvancedPage::fitPopup()
{
    // As wide as its longest name needs, beside a title that keeps room enough to wrap in, and as
    // tall as its tallest script needs.
    QStyleOptionComboBox option;
    option.initFrom(m_buttonPopup);
    option.rect = QRect(QPoint(), QSize(popupWidth, m_buttonPopup->sizeHint().height()));
    const QSize field = m_buttonPopup->style()
                            ->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, m_buttonPopup)
                            .size();
    QSize names;
    for (int i = 0; i < m_buttonPopup->count(); ++i)
        names = names.expandedTo(m_buttonPopup->fontMetrics().size(0, m_buttonPopup->itemText(i)));
    const QSize needed = names + option.rect.size() - field;
    m_buttonPopup->setFixedWidth(
        std::clamp(needed.width(), popupWidth, cardContentWidth - titleToControl - minimumTitleWidth));
    m_buttonPopup->setMinimumHeight(std::max(needed.height(), option.rect.height()));
}

void AdvancedPage::fitTextToPage()
{
    // Long titles wrap first. When the wrapped page is still too tall, the mice list shows one
    // row less, then every text gets smaller, a pixel at a time, never below the smallest size.
    // The page fills the fixed window inside its one-pixel edge, whether shown yet or not.
    constexpr int pageWidth = PreferencesWindow::windowWidth - 2;
    constexpr int pageHeight = PreferencesWindow::windowHeight - 1;
    const auto fits = [this] {
        // Fonts and lists changed since the layouts last measured: every one measures again, and
        // every container forgets the height its parent noted for it.
        for (QLayout *layout : findChildren<QLayout *>())
            layout->invalidate();
        for (QWidget *widget : findChildren<QWidget *>()) {
            if (widget->layout() != nullptr)
                widget->updateGeometry();
        }
        QLayout *layout = m_background->layout();
        const int forWidth = layout->totalHeightForWidth(pageWidth);
        return (forWidth >= 0 ? forWidth : layout->totalSizeHint().height()) <= pageHeight;
    };
    const auto showMice = [this](int rows) { m_miceArea->setFixedHeight(rows * ListRow::height); };
    auto *apps = static_cast<ListArea *>(m_appsArea);

    // What gives way, in order: the mice list's second row, the room kept for the note above the
    // apps (it then scrolls with them), the size of the texts.
    const int miceRows = static_cast<ListArea *>(m_miceArea)->wantedRows;
    showMice(miceRows);
    apps->asksForBanner = true;
    apps->updateGeometry();
    m_shrink = 0;
    for (const PageText &text : m_texts)
        applyFont(text.widget, text.size, text.weight);
    fitPopup();
    if (fits())
        return;
    showMice(1);
    if (fits())
        return;
    apps->asksForBanner = false;
    apps->updateGeometry();
    if (fits())
        return;
    while (std::any_of(m_texts.begin(), m_texts.end(),
        [this](const PageText &text) { return text.size - m_shrink > minimumTextSize; })) {
        ++m_shrink;
        for (const PageText &text : m_texts)
            applyFont(text.widget, text.size, text.weight);
        fitPopup();
        if (fits())
            return;
    }
}

void AdvancedPage::triggerButtonChosen(int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= buttonOrder.size())
        return;
    const QLatin1StringView name = ScrollConfig::triggerButtonName(buttonOrder[static_cast<std::size_t>(index)]);
    SettingsStore::shared().setValue(SettingsKeys::triggerButton, QString(name));
    sendSettingChanged("trigger_button"_L1, QString(name));
}

void AdvancedPage::thresholdChanged(int points)
{
    SettingsStore::shared().setValue(SettingsKeys::dragThreshold, points);
    m_thresholdValue->setText(L10n::pointsValue(points));
    sendSettingChanged("drag_threshold"_L1, QString::number(points));
}

void AdvancedPage::glideChanged(int sliderValue)
{
    const double glide = static_cast<double>(sliderValue) / glideSliderScale;
    SettingsStore::shared().setValue(SettingsKeys::momentumGlide, glide);
    sendSettingChanged("momentum_glide"_L1, formatGlide(glide));
}

void AdvancedPage::mouseSwitched(const MouseIdentity &mouse, bool on)
{
    ScrollConfig::setMouseDisabled(mouse, !on);
    // How many mice are off, never which: analytics learns nothing about the hardware.
    sendSettingChanged("disabled_mice"_L1, QString::number(ScrollConfig::disabledMice().size()));
}

void AdvancedPage::removeApp(const QString &app)
{
    QStringList apps = storedExcludedApps();
    apps.removeAll(app);
    SettingsStore::shared().setValue(SettingsKeys::excludedApps, QJsonArray::fromStringList(apps));
    // Removing the row under the pointer or the focus: the focus moves on to the next control.
    QTimer::singleShot(0, this, [this] { rebuildApps(); });
    sendSettingChanged("excluded_apps"_L1, QString::number(apps.size()));
}

void AdvancedPage::startCountdown()
{
    if (m_countdown > 0 || !m_appSource.lookUpOnce)
        return;
    m_countdown = countdownSeconds;
    m_addAppButton->setEnabled(false);
    m_addAppButton->setText(L10n::addAppCountdown(m_countdown));
    m_addAppStatus->hide();
    m_countdownTimer->start();
}

void AdvancedPage::countdownTick()
{
    if (--m_countdown > 0) {
        m_addAppButton->setText(L10n::addAppCountdown(m_countdown));
        return;
    }
    m_countdownTimer->stop();
    m_addAppButton->setText(L10n::addAppUnderPointer());
    QPointer<AdvancedPage> page(this);
    m_appSource.lookUpOnce([page](const QString &app) {
        if (!page.isNull())
            page->appLookedUp(app);
    });
}

void AdvancedPage::appLookedUp(const QString &app)
{
    refreshAppSource();
    const QString name = app.trimmed();
    if (name.isEmpty()) {
        m_addAppStatus->setText(L10n::noAppUnderPointer());
        m_addAppStatus->show();
        return;
    }
    QStringList apps = storedExcludedApps();
    // An app already in the list, or covered by a pattern of it, is not added twice.
    if (!AppMatcher::matches(apps, name)) {
        apps.append(name);
        SettingsStore::shared().setValue(SettingsKeys::excludedApps, QJsonArray::fromStringList(apps));
        sendSettingChanged("excluded_apps"_L1, QString::number(apps.size()));
        rebuildApps();
    }
    m_addAppStatus->setText(L10n::appAdded(name));
    m_addAppStatus->show();
    // Shows the new row, at the end of the list.
    QTimer::singleShot(
        0, this, [this] { m_appsArea->verticalScrollBar()->setValue(m_appsArea->verticalScrollBar()->maximum()); });
}

void AdvancedPage::enableGnomeExtension()
{
    if (!m_appSource.enableGnomeExtension)
        return;
    m_gnomeButton->setEnabled(false);
    QPointer<AdvancedPage> page(this);
    m_appSource.enableGnomeExtension([page](bool /*enabled*/) {
        // The status tells what the shell made of it, whichever way it went.
        if (!page.isNull())
            page->refreshAppSource();
    });
}

void AdvancedPage::sendSettingChanged(QLatin1StringView settingName, const QString &value) const
{
    if (m_sendAnalytics)
        m_sendAnalytics(
            u"setting_changed"_s, QJsonObject { { u"setting_name"_s, QString(settingName) }, { u"value"_s, value } });
}

} // namespace kestrix
