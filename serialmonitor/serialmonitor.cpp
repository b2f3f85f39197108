// The serial monitor window.
#include "serialmonitor.h"

#include "ui_serialmonitor.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QTextCursor>
#include <QTextDocument>

namespace {

// Qt 5 counts pixels in 26 bits. A text without a page height that is taller than 8,388,607 px is
// laid out without end; one taller than 21,474,836 px loses its scroll bar, and is laid out as a
// whole at each append.
constexpr int pageHeight = 30'000'000; // px
constexpr int tallestText = 10'000'000; // px; a narrower window makes a text taller
constexpr int portionsOfText = 10; // dropped one at a time, because each moves all that is left

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
    // A text browser follows its end while it stands there, wanted or not.
    if (automatic)
        scrollBar->setValue(scrollBar->maximum());
    int position = scrollBar->value();
    ui->textBrowser->append(text);
    if (scrollBar->maximum() > tallestText)
        position -= dropOldestText();
    if (!automatic)
        scrollBar->setValue(position);
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
    const QScrollBar *scrollBar = ui->textBrowser->verticalScrollBar();
    const int before = scrollBar->maximum();
    QTextDocument *document = ui->textBrowser->document();
    QTextCursor cursor(document);
    cursor.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor,
                        qMax(1, document->blockCount() / portionsOfText));
    cursor.removeSelectedText();
    return before - scrollBar->maximum();
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
