#include <Core/Settings.h>
#include <HostKit/Log.h>

#include <QtTest/QtTest>

#include <array>
#include <future>

#include <fcntl.h>
#include <unistd.h>

namespace {

QString value()
{
    return Core::Settings::getInstance()
        ->getValue("SingleInstance", "MasterPort", QVariant("none"))
        .toString();
}

void setValue(const QString& value)
{
    Core::Settings::getInstance()->setValue("SingleInstance", "MasterPort", value, true);
}

} // namespace

/* The functions that HostKit has for the library to call. */
class HostTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        QCoreApplication::setOrganizationName("maker");
        QCoreApplication::setApplicationName("program");
        home = std::make_unique<QTemporaryDir>();
        QVERIFY(home->isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->path()));
    }

    void keepsValuesPrivate()
    {
        QCoreApplication::setApplicationName("../a b/ü"); // leads nowhere else
        QCOMPARE(value(), "none");
        setValue("1");
        const QString path = "maker/..%2Fa b%2F%C3%BC/SingleInstance/MasterPort";
        QVERIFY(QFile::exists(home->filePath(path)));
        for (const char* const end : {"a", "b"}) { // too long for a file, but for their hash
            QCoreApplication::setApplicationName(QString(200, QChar(0x42F)) + end);
            QCOMPARE(value(), "none");
            setValue(end);
            QCOMPARE(value(), end);
        }
        const QStringList openToOthers = {home->path(), "-perm", "/077"};
        QProcess find;
        find.start("find", openToOthers);
        QVERIFY(find.waitForFinished());
        QCOMPARE(find.readAll(), QByteArray());
    }

    void showsNoPartOfAValue()
    {
        const QStringList values = {QString(10, '1'), QString(5000, '2')};
        setValue(values.first());
        const auto writer = std::async(std::launch::async, [&values] {
            for (int i = 0; i < 2000; ++i)
                setValue(values[i % 2]);
        });
        while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            QVERIFY(values.contains(value()));
        const QDir folder(home->filePath("maker/program/SingleInstance"));
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden), QStringList("MasterPort"));
    }

    void dropsLinesThatNobodyReads()
    {
        const int usual = ::dup(STDERR_FILENO);
        std::array<int, 2> ends = {};
        QCOMPARE(::pipe2(ends.data(), O_CLOEXEC), 0);
        ::dup2(ends[1], STDERR_FILENO);
        const auto write = [](char letter) {
            HostKit::writeToStandardError(HostKit::LogLevel::Info, QString(9000, letter));
        };
        for (int i = 0; i < 100; ++i)
            write('x'); // would block here
        const auto drain = [&ends] {
            std::array<char, 1 << 18> text = {};
            const auto got = ::read(ends[0], text.data(), text.size());
            return QByteArray(text.data(), int(got));
        };
        QByteArray read = drain();
        const auto kept = read.count('\n');
        write('y');
        read += drain();
        ::dup2(usual, STDERR_FILENO);
        for (const int file : {usual, ends[0], ends[1]})
            ::close(file);
        const QByteArray gap =
            " info: (" + QByteArray::number(100 - kept) + " lines before this were dropped) y";
        QVERIFY(kept > 0 && read.contains(gap));
        QCOMPARE(read.count('\n'), kept + 2); // behind what is left of the first that was dropped
    }

private:
    std::unique_ptr<QTemporaryDir> home;
};

QTEST_GUILESS_MAIN(HostTest)
#include "tst_host.moc"
