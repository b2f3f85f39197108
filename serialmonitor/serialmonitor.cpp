// The serial monitor window.
#include "serialmonitor.h"

#include "ui_serialmonitor.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>

namespace {

// Qt counts pixels in 26 bits. Qt 6.8 lays out no paragraph that begins below 8,388,607 px. Older
// ones do, but without end if the page has no height, and with a wrong scroll bar above 21,474,836
// px. A window that is made narrower makes its text taller.
constexpr int pageHeight = 30'000'000; // px
constexpr double tallestText = 8'000'000; // px
constexpr double longestText = 15'000'000; // characters
constexpr double portionKept = 0.9; // less than fits, because each cut moves all of the rest
// More than a device can send in a tick, and so few that each may take a line of its own.
constexpr int longestAppend = 200'000; // characters

QTextBlock lastParagraphLaidOut(const QTextDocument &document)
{
    QTextBlock paragraph = document.lastBlock();
    while (paragraph.layout()->lineCount() == 0 && paragraph.previous().isValid())
        paragraph = paragraph.previous();
    return paragraph;
}

// Of the whole text, with an estimate of what is not laid out.
double heightOf(const QTextDocument &document)
{
    const double height = document.size().height();
    if (height <= tallestText)
        return height;
    return height * document.blockCount() / (lastParagraphLaidOut(document).blockNumber() + 1);
}

// Text size relative to what the view can hold; above 1 the oldest text goes.
double fullness(const QTextDocument &document)
{
    return qMax(heightOf(document) / tallestText, document.characterCount() / longestText);
}

// What is above the cursor: everything that is laid out if the cursor's paragraph is not.
int heightAbove(const QTextCursor &cursor, const QTextBrowser &view)
{
    const QTextCursor start(view.document());
    const int height = view.cursorRect(cursor).top() - view.cursorRect(start).top();
    if (cursor.block().layout()->lineCount() == 0)
        return int(view.document()->size().height());
    return height;
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
    // To a function that is not a slot: the window's only slots are those of its form.
    connect(ui->textBrowser->document()->documentLayout(), &QAbstractTextDocumentLayout::update,
            this, &SerialMonitor::keepTextOnOnePage);
}

SerialMonitor::~SerialMonitor()
{
    delete ui;
}

void SerialMonitor::appendToSerialMonitor(QString text)
{
    QTextDocument *document = ui->textBrowser->document();
    QScrollBar *scrollBar = ui->textBrowser->verticalScrollBar();
    const bool automatic = ui->checkBox->isChecked();
    if (automatic)
        scrollBar->setValue(scrollBar->maximum());
    int position = scrollBar->value();
    appendPlainParagraph(document, text.right(longestAppend));
    while (fullness(*document) > 1 && document->blockCount() > 1)
        position -= dropOldestText();
    scrollBar->setValue(automatic ? scrollBar->maximum() : position);
}

// The text browser resets the page's height whenever its width changes.
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
    const int height = heightAbove(cursor, *ui->textBrowser);
    const QTextBlock next = lastParagraphLaidOut(*document).next();
    const bool whole = !next.isValid();
    const QTextCursor rest(next);
    cursor.removeSelectedText();
    // What was below the limit is not laid out by itself.
    if (!whole)
        document->markContentsDirty(rest.position(), document->characterCount() - rest.position());
    return height;
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
