#pragma once

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
        Opens each absolute path or file URL among \a arguments in a tab, the last one in front; a
        file that is open already is read again. Problems go to the notice, other arguments among
        them. Large files wait until the user has said whether to open them.
    */
    void open(const QStringList& arguments);

    /*! Comes to the front and opens \a arguments, which another launch handed over. */
    void openFromOtherLaunch(const QStringList& arguments);

    /*! Shows \a text in the notice, below what it says already. */
    void tell(const QString& text);

private:
    void present();
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
};
