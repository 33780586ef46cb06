#include "app/Translations.h"
#include "operations/TransferRate.h"

#include <QTest>

using Samples = QList<QPair<qint64, qint64>>;

class TestTransferRate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void figures_data();
    void figures();
    void burstsDoNotMakeItJump();
    void formats_data();
    void formats();
};

void TestTransferRate::figures_data()
{
    // Samples as (done, msecs) at a steady 1 MB/s unless said otherwise, total 10 MB.
    QTest::addColumn<Samples>("samples");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<double>("rate"); // expected bytes per second; < 0: none yet
    QTest::addColumn<qint64>("left"); // expected seconds left; < 0: none
    using S = Samples;
    QTest::newRow("nothing before a second")
        << S { { 0, 0 }, { 500'000, 500 } } << 10'000'000LL << -1.0 << -1LL;
    QTest::newRow("steady") << S { { 0, 0 }, { 1'000'000, 1000 }, { 2'000'000, 2000 }, { 4'000'000, 4000 } }
                            << 10'000'000LL << 1'000'000.0 << 6LL;
    QTest::newRow("total unknown: speed only")
        << S { { 0, 0 }, { 1'000'000, 1000 }, { 2'000'000, 2000 } } << 0LL << 1'000'000.0 << -1LL;
    QTest::newRow("stalled: no time left")
        << S { { 0, 0 }, { 0, 1000 }, { 0, 2000 } } << 10'000'000LL << 0.0 << -1LL;
    QTest::newRow("count goes back: a new start")
        << S { { 0, 0 }, { 5'000'000, 1000 }, { 100, 1500 }, { 200, 1800 } } << 10'000'000LL << -1.0 << -1LL;
    QTest::newRow("close samples gather")
        << S { { 0, 0 }, { 10, 1 }, { 20, 2 }, { 1'000'000, 1000 } } << 10'000'000LL << 1'000'000.0 << 9LL;
}

void TestTransferRate::figures()
{
    QFETCH(Samples, samples);
    QFETCH(qint64, total);
    QFETCH(double, rate);
    QFETCH(qint64, left);
    TransferRate r;
    for (const auto& [done, ms] : samples)
        r.sample(done, total, ms);
    if (rate < 0) {
        QVERIFY(!r.bytesPerSecond());
        QVERIFY(r.describe().isEmpty());
    } else {
        QVERIFY(r.bytesPerSecond());
        QVERIFY(qAbs(*r.bytesPerSecond() - rate) < 1.0);
    }
    QCOMPARE(r.secondsLeft().value_or(-1), left);
}

void TestTransferRate::burstsDoNotMakeItJump()
{
    // 1 MB/s on average, arriving as a 2 MB burst then a pause, over and over.
    TransferRate r;
    qint64 done = 0;
    r.sample(0, 0, 0);
    double lowest = 1e12, highest = 0;
    for (int ms = 500; ms <= 30'000; ms += 500) {
        if (ms % 2000 == 0)
            done += 2'000'000;
        r.sample(done, 0, ms);
        if (ms > 10'000 && r.bytesPerSecond()) {
            lowest = std::min(lowest, *r.bytesPerSecond());
            highest = std::max(highest, *r.bytesPerSecond());
        }
    }
    // Raw half-second rates swing between 0 and 4 MB/s; the figure shown stays near 1 MB/s.
    QVERIFY2(lowest > 0.6e6 && highest < 1.6e6, qPrintable(u"%1 .. %2"_qs.arg(lowest).arg(highest)));
}

void TestTransferRate::formats_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << 0LL << u"0:00"_qs;
    QTest::newRow("seconds") << 7LL << u"0:07"_qs;
    QTest::newRow("minutes") << 750LL << u"12:30"_qs;
    QTest::newRow("hours") << 3723LL << u"1:02:03"_qs;
    QTest::newRow("negative") << -5LL << u"0:00"_qs;
}

void TestTransferRate::formats()
{
    QFETCH(qint64, seconds);
    QTEST(TransferRate::formatDuration(seconds), "text");
    QCOMPARE(TransferRate::formatRate(1'500'000), u"1.5 MB/s"_qs);
}

QTEST_GUILESS_MAIN(TestTransferRate)
#include "tst_transfer_rate.moc"
