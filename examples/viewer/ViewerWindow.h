#pragma once

#include <QtWidgets/QMainWindow>

class QLabel;
class QTabWidget;

/*!
    The one window: a tab for each file, and above them a notice about what could not be shown.
*/
class ViewerWindow : public QMainWindow {
    Q_OBJECT

public:
    ViewerWindow();

    /*!
        Opens each absolute path among \a arguments in a tab, the last one in front; a file that is
        open already is read again. Problems go to the notice, other arguments among them.

        May be called again from the event loop of a question that it asks.
    */
    void open(const QStringList& arguments);

    /*! Comes to the front and opens \a arguments, which another launch handed over. */
    void openFromOtherLaunch(const QStringList& arguments);

    /*! Shows \a text in the notice, below what it says already. */
    void tell(const QString& text);

private:
    void present();
    void openFile(const QString& path);
    void showText(const QString& path, const QString& text);
    bool isWanted(const QString& path);
    void chooseFiles();

    QLabel* notice;
    QTabWidget* tabs;
};
