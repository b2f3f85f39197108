// The file-name rule of sketches.
#include "sketch/sketch.h"

#include <QTest>

class tst_Sketch : public QObject
{
    Q_OBJECT

private slots:
    void noSketch();
    void name();
};

void tst_Sketch::noSketch()
{
    const Sketch sketch;
    QCOMPARE(sketch.version, -1);
    QCOMPARE(sketch.name, QString());
}

void tst_Sketch::name()
{
    QCOMPARE(Sketch(QFileInfo(QStringLiteral("Blink__3.ino"))).version, 3);
}

QTEST_APPLESS_MAIN(tst_Sketch)

#include "tst_sketch.moc"
