/* Saves a picture of the whole screen: screenshot FILE.png */

#include <QtGui/QGuiApplication>
#include <QtGui/QPixmap>
#include <QtGui/QScreen>

#include <cstdio>

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    const QString file = QGuiApplication::arguments().value(1);
    if (QGuiApplication::primaryScreen()->grabWindow(0).save(file))
        return 0;
    std::fprintf(stderr, "screenshot: cannot write %s\n", qPrintable(file));
    return 1;
}
