// The serial monitor window.
#include "serialmonitor.h"

#include "ui_serialmonitor.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace {

// Qt counts pixels in 26 bits. A text without a page height that is taller than 8,388,607 px is
// laid out without end; one taller than 21,474,836 px has a wrong scroll bar, and is laid out as a
// whole at each append. A window that is made narrower makes its text taller.
constexpr int pageHeight = 30'000'000; // px
constexpr double tallestText = 10'000'000; // px
constexpr double longestText = 15'000'000; // characters, which the narrowest window can hold
constexpr double portionKept = 0.9; // not all that fits, because each time all that is left moves

// Text size relative to what the view can hold; above 1 the oldest text goes.
double fullness(const QTextDocument &document)
{
    return qMax(document.size().height() / tallestText, document.characterCount() / longestText);
}

// A text browser's own append() takes whatever looks like a tag for HTML.
void appendPlainParagraph(QTextDocument *document, const QString &text)
{
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    cursor.movePosition(QTextCursor::End);
    if (!document->isEmpty())
        cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
    cursor.insertText(text);
    cursor.endEditBlock();
}

} // namespace

SerialMonitor::SerialMonitor(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui_SerialMonitor)
{
    ui->setupUi(this);
    // To a function that is no slot: the window's slots are those of its form.
    connect(ui->textBrowser->document()->documentLayout(), &QAbstractTextDocumentLayout::update,
            this, &SerialMonitor::keepTextOnOnePage);
}

SerialMonitor::~SerialMonitor()
{
    delete ui;
}

void SerialMonitor::appendToSerialMonitor(QString text)
{
    QScrollBar *scrollBar = ui->textBrowser->verticalScrollBar();
    const bool automatic = ui->checkBox->isChecked();
    if (automatic)
        scrollBar->setValue(scrollBar->maximum());
    int position = scrollBar->value();
    appendPlainParagraph(ui->textBrowser->document(), text);
    if (fullness(*ui->textBrowser->document()) > 1)
        position -= dropOldestText();
    scrollBar->setValue(automatic ? scrollBar->maximum() : position);
}

// The text browser takes the page's height away whenever its width changes.
void SerialMonitor::keepTextOnOnePage()
{
    QTextDocument *document = ui->textBrowser->document();
    const QSizeF page = document->pageSize();
    if (page.height() < pageHeight)
        document->setPageSize(QSizeF(page.width(), pageHeight));
}

int SerialMonitor::dropOldestText()
{
    QTextDocument *document = ui->textBrowser->document();
    const double portion = 1 - portionKept / fullness(*document);
    QTextCursor cursor(document);
    cursor.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor,
                        qMax(1, int(document->blockCount() * portion)));
    const QAbstractTextDocumentLayout *layout = document->documentLayout();
    const double height = layout->blockBoundingRect(cursor.block()).top()
        - layout->blockBoundingRect(document->firstBlock()).top();
    cursor.removeSelectedText();
    return int(height);
}

void SerialMonitor::scheduleToSendAndClear()
{
    toSendText = ui->lineEdit->text();
    ui->lineEdit->clear();
}

QString SerialMonitor::pendingText() const
{
    return toSendText;
}

void SerialMonitor::clearPendingText()
{
    toSendText.clear();
}

void SerialMonitor::on_pushButton_2_clicked()
{
    ui->textBrowser->clear();
}

void SerialMonitor::on_pushButton_clicked()
{
    scheduleToSendAndClear();
}

void SerialMonitor::on_lineEdit_returnPressed()
{
    scheduleToSendAndClear();
}
