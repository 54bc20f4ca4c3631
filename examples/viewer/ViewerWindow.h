#pragma once

#include <HostKit/ReceivedLaunch.h>

#include <QtCore/QPointer>
#include <QtWidgets/QMainWindow>

class QLabel;
class QMessageBox;
class QTabWidget;
struct TextFile;

/*!
    The one window: a tab for each file, and above them a notice about what could not be shown.
*/
class ViewerWindow : public QMainWindow {
    Q_OBJECT

public:
    ViewerWindow();

    /*!
        Opens each absolute path or file URL in \a files in a tab, the last one in front. A file
        that is open already is read again. Problems go to the notice. Large files wait until the
        user has said whether to open them.
    */
    void open(const QStringList& files);

    /*!
        Comes to the front and opens \a files of another launch. If that waits, it is answered when
        the tabs of the files are closed, or at once if one cannot be shown.
    */
    void openFromOtherLaunch(const QStringList& files, const HostKit::ReceivedLaunch& launch);

    /*! Adds \a text to the notice above the tabs. */
    void tell(const QString& text);

private:
    /* A launch that waits for files. They are open, or the user is asked about them. */
    struct WaitingLaunch {
        HostKit::ReceivedLaunch launch;
        QStringList files;
    };

    void present();
    void closeTab(int index);
    void release(const QString& path);
    void refuse(const QString& path, const QString& problem);
    void openFile(const QString& path);
    void askAbout(const QString& path);
    void openAsked(int answer);
    void showFile(const QString& path, const TextFile& file);
    void showText(const QString& path, const QString& text);
    void chooseFiles();

    QLabel* notice;
    QTabWidget* tabs;
    QStringList large; // files that the user is asked about
    QPointer<QMessageBox> question;
    QList<WaitingLaunch> waiting;
};
