#include <Core/ObjectsPool.h>
#include <Core/Settings.h>
#include <HostKit/LaunchLock.h>

#include <QtTest/QtTest>

#include <atomic>
#include <future>

namespace {

QString portSetting()
{
    return Core::Settings::getInstance()
        ->getValue("SingleInstance", "MasterPort", QVariant("none"))
        .toString();
}

void setPort(const QString& port)
{
    Core::Settings::getInstance()->setValue("SingleInstance", "MasterPort", port, true);
}

} // namespace

class HostKitTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QCoreApplication::setOrganizationName("maker");
        QCoreApplication::setApplicationName("program"); // also in the name of the folder
        home = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
    }

    void keepsValuesPrivate()
    {
        QCoreApplication::setApplicationName("../a b/ü"); // leads nowhere else
        QCOMPARE(portSetting(), "none");
        setPort("1");
        const QString path = "maker/..%2Fa b%2F%C3%BC/SingleInstance/MasterPort";
        QVERIFY(QFile::exists(home->filePath(path)));
        const HostKit::LaunchLock lock;
        QDirIterator all(home->path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
        int found = 0;
        for (; all.hasNext(); ++found) {
            all.next();
            QVERIFY2(!(all.fileInfo().permissions() & (QFile::ReadGroup | QFile::ReadOther)),
                     qPrintable(all.filePath()));
        }
        QCOMPARE(found, 5); // three folders, a value, the lock
    }

    void showsNoPartOfAValue()
    {
        const QString shorter(10, '1');
        const QString longer(5000, '2');
        setPort(shorter);
        std::atomic<bool> done = false;
        const auto writer = std::async(std::launch::async, [&] {
            for (int i = 0; i < 2000; ++i)
                setPort(i % 2 == 0 ? longer : shorter);
            done = true;
        });
        while (!done) {
            const QString value = portSetting();
            QVERIFY2(value == shorter || value == longer, qPrintable(value.left(20)));
        }
        QCOMPARE(QDir(home->filePath("maker/program/SingleInstance")).count(),
                 3u); // nothing left over
    }

    void forgetsDestroyedObjects()
    {
        auto& pool = Core::ObjectsPool::getInstance();
        auto first = std::make_unique<QObject>();
        QObject second;
        QVERIFY(pool.add({first.get(), first.get()}, "x", true));
        QVERIFY(!pool.add({&second, &second}, "x", true));
        first.reset();
        QVERIFY(!pool.find("x", false).first);
        QVERIFY(pool.add({&second, &second}, "x", true));
        QCOMPARE(pool.take("x", false).second, &second);
        QVERIFY(!pool.take("x", false).second);
    }

    void locksOneLaunchAtATime()
    {
        const HostKit::LaunchLock first;
        QVERIFY(first.isTaken());
        QVERIFY(!HostKit::LaunchLock(std::chrono::milliseconds(0)).isTaken());
        QVERIFY(!HostKit::LaunchLock(std::chrono::milliseconds(20)).isTaken());
        QCoreApplication::setApplicationName("another program");
        QVERIFY(HostKit::LaunchLock(std::chrono::milliseconds(0)).isTaken());
    }

private:
    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(HostKitTest)
#include "tst_hostkit.moc"
