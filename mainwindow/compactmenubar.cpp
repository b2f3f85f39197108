// The menu bar's own style.
#include "compactmenubar.h"

#include <QApplication>
#include <QMenuBar>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleOptionMenuItem>

#include <algorithm>

namespace {

// Pixels: the line below the entries, and a reserve for rounded positions.
constexpr int ruleHeight = 1;
constexpr int roundingLoss = 1;

// Where the letters are within their line of text, which extends from its ascent to its descent.
QRect lettersOf(const QStyleOptionMenuItem &entry)
{
    const QFontMetrics &metrics = entry.fontMetrics;
    QRect letters = metrics.tightBoundingRect(entry.text);
    letters.setBottom(std::max(letters.bottom(), metrics.underlinePos() + metrics.lineWidth()));
    return letters.translated(0, metrics.ascent());
}

// Styles centre the line of text. If the bar is lower than the line, the lower part of the letters
// would be cut off, because there is space above them. This is how far the entry must extend above
// the bar.
int heightAboveBar(const QStyleOptionMenuItem &entry)
{
    const int lineHeight = entry.fontMetrics.height();
    const int neededHeight = 2 * (lettersOf(entry).bottom() + 1) - lineHeight + roundingLoss;
    return std::max(0, neededHeight - entry.rect.height());
}

class CompactMenuBarStyle : public QProxyStyle
{
public:
    // A second instance of the application's style, because a proxy owns the one below it.
    explicit CompactMenuBarStyle(int height)
        : QProxyStyle(QApplication::style()->objectName())
        , barHeight(height)
    {
    }

    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &size,
                           const QWidget *widget) const override;
    int pixelMetric(PixelMetric metric, const QStyleOption *option,
                    const QWidget *widget) const override;
    void drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                     const QWidget *widget) const override;

private:
    void drawEntry(const QStyleOptionMenuItem &entry, QPainter *painter,
                   const QWidget *widget) const;
    void drawEmptyArea(const QStyleOption &option, QPainter *painter, const QWidget *widget) const;

    int barHeight;
};

QSize CompactMenuBarStyle::sizeFromContents(ContentsType type, const QStyleOption *option,
                                            const QSize &size, const QWidget *widget) const
{
    const QSize padded = QProxyStyle::sizeFromContents(type, option, size, widget);
    const auto *entry = qstyleoption_cast<const QStyleOptionMenuItem *>(option);
    if (type != CT_MenuBarItem || entry == nullptr)
        return padded;
    const int lettersHeight = lettersOf(*entry).height() + ruleHeight + roundingLoss;
    return QSize(padded.width(), std::min(padded.height(), std::max(barHeight, lettersHeight)));
}

int CompactMenuBarStyle::pixelMetric(PixelMetric metric, const QStyleOption *option,
                                     const QWidget *widget) const
{
    if (metric == PM_MenuBarVMargin || metric == PM_MenuBarPanelWidth)
        return 0;
    return QProxyStyle::pixelMetric(metric, option, widget);
}

void CompactMenuBarStyle::drawControl(ControlElement element, const QStyleOption *option,
                                      QPainter *painter, const QWidget *widget) const
{
    const auto *entry = qstyleoption_cast<const QStyleOptionMenuItem *>(option);
    if (element == CE_MenuBarEmptyArea)
        drawEmptyArea(*option, painter, widget);
    else if (element == CE_MenuBarItem && entry != nullptr)
        drawEntry(*entry, painter, widget);
    else
        QProxyStyle::drawControl(element, option, painter, widget);
}

void CompactMenuBarStyle::drawEntry(const QStyleOptionMenuItem &entry, QPainter *painter,
                                    const QWidget *widget) const
{
    QStyleOptionMenuItem raised(entry);
    raised.rect.setTop(entry.rect.top() - heightAboveBar(entry));
    QProxyStyle::drawControl(CE_MenuBarItem, &raised, painter, widget);
    if (entry.state & (State_Selected | State_Sunken))
        return;

    // When scaled, Fusion's line below the entry ends one screen pixel before the entry.
    painter->save();
    painter->setClipRect(entry.rect.right(), entry.rect.top(), 1, entry.rect.height());
    drawEmptyArea(entry, painter, widget);
    painter->restore();
}

// Extends beyond the bar's end, so that the line does not end before it.
void CompactMenuBarStyle::drawEmptyArea(const QStyleOption &option, QPainter *painter,
                                        const QWidget *widget) const
{
    QStyleOption area(option);
    area.rect.setRight(widget->width());
    QProxyStyle::drawControl(CE_MenuBarEmptyArea, &area, painter, widget);
}

} // namespace

void makeCompact(QMenuBar *menuBar, int height)
{
    auto *style = new CompactMenuBarStyle(height);
    style->setParent(menuBar);
    menuBar->setStyle(style);
}
