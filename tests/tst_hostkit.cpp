#include <Core/Invokator.h>
#include <Core/ObjectsPool.h>
#include <Core/Settings.h>
#include <HostKit/LaunchLock.h>
#include <HostKit/LogSink.h>
#include <Logger/Logger.h>

#include <QtTest/QtTest>

#include <future>

using torvane::LogLevel;

namespace {

Core::Settings& settings()
{
    return *Core::Settings::getInstance();
}

QVariant valueOf(const QString& key)
{
    return settings().getValue("SingleInstance", key, QVariant(0));
}

void setValue(const QString& key, const QVariant& value)
{
    settings().setValue("SingleInstance", key, value, true);
}

} // namespace

class HostKitTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void keepsValues();
    void keepsValuesPrivate();
    void keepsNamesApart_data();
    void keepsNamesApart();
    void showsNoPartOfAValue();
    void reportsAStoreThatCannotBeWrittenOnce();
    void forgetsDestroyedObjects();
    void locksOneLaunchAtATime();

private:
    std::unique_ptr<QTemporaryDir> home;
    QStringList lines;
};

void HostKitTest::init()
{
    QCoreApplication::setOrganizationName("maker");
    QCoreApplication::setApplicationName("program"); // also in the name of the folder
    home = std::make_unique<QTemporaryDir>();
    QVERIFY(home->isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
    lines.clear();
    torvane::SetLoggerLevel(LogLevel::Info);
    torvane::SetLoggerDelegate([this](LogLevel level, const std::wstring& text) {
        lines.append(QString::number(int(level)) + ' ' + QString::fromStdWString(text));
    });
}

void HostKitTest::cleanup()
{
    torvane::SetLoggerDelegate({});
}

void HostKitTest::keepsValues()
{
    QCOMPARE(valueOf("MasterPort"), QVariant(0));
    for (const QVariant& value : {QVariant(40000u), QVariant(0u), QVariant(QString(9000, 'x'))}) {
        setValue("MasterPort", value);
        QCOMPARE(valueOf("MasterPort").toString(), value.toString());
        QCOMPARE(valueOf("MasterPort").toUInt(), value.toUInt());
    }
    QVERIFY(lines.isEmpty());
}

void HostKitTest::keepsValuesPrivate()
{
    setValue("MasterPort", 1u);
    const HostKit::LaunchLock lock;
    QDirIterator all(home->path(), QDir::AllEntries | QDir::NoDotAndDotDot,
                     QDirIterator::Subdirectories);
    int found = 0;
    for (; all.hasNext(); ++found) {
        all.next();
        QVERIFY2(!(all.fileInfo().permissions() & (QFile::ReadGroup | QFile::ReadOther)),
                 qPrintable(all.filePath()));
    }
    QCOMPARE(found, 5); // three folders, a value, the lock
}

void HostKitTest::keepsNamesApart_data()
{
    QTest::addColumn<QString>("organisation");
    QTest::addColumn<QString>("application");
    QTest::addColumn<QString>("path");

    QTest::newRow("no organisation") << ""
                                     << "program"
                                     << "program";
    QTest::newRow("the folder above") << "maker"
                                      << ".."
                                      << "maker/%2E%2E";
    QTest::newRow("a path") << "maker"
                            << "../../x/y"
                            << "maker/..%2F..%2Fx%2Fy";
    QTest::newRow("blanks and letters")
        << "maker" << QString::fromUtf8("ein Betrachter ü") << "maker/ein Betrachter %C3%BC";
}

void HostKitTest::keepsNamesApart()
{
    QFETCH(QString, organisation);
    QFETCH(QString, application);
    QFETCH(QString, path);
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(application);
    setValue("MasterPort", 1u);
    QVERIFY(QFile::exists(home->filePath(path + "/SingleInstance/MasterPort")));
}

void HostKitTest::showsNoPartOfAValue()
{
    const QString shorter(10, '1');
    const QString longer(5000, '2');
    setValue("MasterPort", shorter);
    std::atomic<bool> done = false;
    auto writer = std::async(std::launch::async, [&] {
        for (int i = 0; i < 2000; ++i)
            setValue("MasterPort", i % 2 == 0 ? longer : shorter);
        done = true;
    });
    while (!done) {
        const QString value = valueOf("MasterPort").toString();
        QVERIFY2(value == shorter || value == longer, qPrintable(value.left(20)));
    }
    writer.wait();
    QCOMPARE(QDir(home->filePath("maker/program/SingleInstance")).count(), 3u); // nothing left over
}

void HostKitTest::reportsAStoreThatCannotBeWrittenOnce()
{
    qputenv("XDG_CONFIG_HOME", "/dev/null/below");
    setValue("MasterPort", 1u);
    setValue("MasterPort", 1u);
    QCOMPARE(lines,
             QStringList("3 Settings: cannot write /dev/null/below/maker/program/"
                         "SingleInstance/MasterPort: Not a directory"));
    QCOMPARE(valueOf("MasterPort"), QVariant(0));
    QVERIFY(!HostKit::LaunchLock(std::chrono::seconds(60)).isTaken());
}

void HostKitTest::forgetsDestroyedObjects()
{
    auto& pool = Core::ObjectsPool::getInstance();
    const Core::ObjectsPool::Entry none(nullptr, nullptr);
    auto first = std::make_unique<QObject>();
    QObject second;
    QVERIFY(pool.add({first.get(), first.get()}, "x", true));
    QVERIFY(!pool.add({&second, &second}, "x", true));
    first.reset();
    QCOMPARE(pool.find("x", false), none);
    QVERIFY(pool.add({&second, &second}, "x", true));
    QCOMPARE(pool.take("x", false).second, &second);
    QCOMPARE(pool.take("x", false), none);
}

void HostKitTest::locksOneLaunchAtATime()
{
    const auto first = std::make_unique<HostKit::LaunchLock>();
    QVERIFY(first->isTaken());
    QVERIFY(!HostKit::LaunchLock(std::chrono::milliseconds(0)).isTaken());
    QVERIFY(!HostKit::LaunchLock(std::chrono::milliseconds(20)).isTaken());
    QCoreApplication::setApplicationName("another program");
    QVERIFY(HostKit::LaunchLock(std::chrono::milliseconds(0)).isTaken());
}

QTEST_GUILESS_MAIN(HostKitTest)
#include "tst_hostkit.moc"
