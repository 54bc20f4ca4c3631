#include "Foreground.h"
#include "ScriptedDesktop.h"
#include "ScriptedHost.h"

#include <QtTest/QtTest>

Q_DECLARE_METATYPE(std::vector<ScriptedDesktop::Window>)

class ForegroundTest : public QObject {
    Q_OBJECT

private slots:
    void activates_data();
    void activates();
};

void ForegroundTest::activates_data()
{
    QTest::addColumn<QVariant>("masterPid");
    QTest::addColumn<std::vector<ScriptedDesktop::Window>>("windows");
    QTest::addColumn<bool>("granted");
    QTest::addColumn<int>("activated");
    QTest::addColumn<int>("visited");

    using Windows = std::vector<ScriptedDesktop::Window>;
    const Windows several = {{false, 5}, {false, 7}, {false, 7}, {false, 5}};
    const Windows unknown = {{true, 7}, {true, 0}};
    QTest::newRow("the topmost of several") << QVariant(7u) << several << true << 1 << 2;
    QTest::newRow("no other one if refused") << QVariant(7u) << several << false << 1 << 2;
    QTest::newRow("none of the others'") << QVariant(8u) << several << true << -1 << 4;
    QTest::newRow("none without an id") << QVariant() << several << true << -1 << 4;
    QTest::newRow("none for an id that is no number")
        << QVariant("x") << several << true << -1 << 4;
    QTest::newRow("the largest id")
        << QVariant(0xFFFFFFFFu) << Windows{{false, 0xFFFFFFFF}} << true << 0 << 1;
    QTest::newRow("none that is gone") << QVariant(7u) << unknown << true << -1 << 2;
    QTest::newRow("none that is gone, without an id") << QVariant() << unknown << true << -1 << 2;
    QTest::newRow("none that is gone, largest id")
        << QVariant(0xFFFFFFFFu) << unknown << true << -1 << 2;
}

void ForegroundTest::activates()
{
    QFETCH(QVariant, masterPid);
    QFETCH(std::vector<ScriptedDesktop::Window>, windows);
    QFETCH(bool, granted);
    ScriptedHost::reset();
    if (masterPid.isValid())
        ScriptedHost::set(QStringLiteral("MasterPid"), masterPid);
    ScriptedDesktop::reset(windows, granted);

    SingleInstance::bringMasterToForeground();

    const auto& visit = ScriptedDesktop::visit();
    QTEST(visit.visited, "visited");
    QTEST(visit.activated.empty() ? -1 : int(visit.activated.front()), "activated");
    QVERIFY(visit.activated.size() <= 1);
    QVERIFY(ScriptedHost::takeLog().isEmpty());
}

QTEST_APPLESS_MAIN(ForegroundTest)
#include "tst_foreground.moc"
