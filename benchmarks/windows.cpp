/* Shows as many windows as it is told to, until its input ends. */

#include <QtCore/QSocketNotifier>
#include <QtGui/QGuiApplication>
#include <QtGui/QRasterWindow>

#include <memory>
#include <vector>

#include <unistd.h>

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    std::vector<std::unique_ptr<QRasterWindow>> windows;
    for (int i = QGuiApplication::arguments().value(1).toInt(); i > 0; --i) {
        windows.push_back(std::make_unique<QRasterWindow>());
        windows.back()->resize(40, 40);
        windows.back()->show();
    }
    const QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &QCoreApplication::quit);
    return QGuiApplication::exec();
}
