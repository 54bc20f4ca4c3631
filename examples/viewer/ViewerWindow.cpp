#include "ViewerWindow.h"

#include "TextFile.h"

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtGui/QFontDatabase>
#include <QtWidgets/QApplication>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QTabWidget>
#include <QtWidgets/QVBoxLayout>

namespace {

constexpr qint64 largeFile = 8 << 20; // bytes
constexpr int noticedLines = 6;

} // namespace

ViewerWindow::ViewerWindow()
    : notice(new QLabel(this))
    , tabs(new QTabWidget(this))
{
    notice->setTextFormat(Qt::PlainText); // it quotes names that others chose
    notice->setWordWrap(true);
    notice->setMargin(8);
    notice->hide();
    tabs->setDocumentMode(true);
    tabs->setTabsClosable(true);
    connect(tabs, &QTabWidget::tabCloseRequested, this,
            [this](int index) { delete tabs->widget(index); });

    auto* const content = new QWidget(this);
    auto* const layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(notice);
    layout->addWidget(tabs);
    setCentralWidget(content);

    QMenu* const menu = menuBar()->addMenu(tr("&File"));
    menu->addAction(tr("&Open…"), this, &ViewerWindow::chooseFiles)
        ->setShortcut(QKeySequence::Open);
    menu->addAction(tr("&Quit"), this, &QWidget::close)->setShortcut(QKeySequence::Quit);
    resize(720, 480);
}

void ViewerWindow::open(const QStringList& arguments)
{
    for (const QString& argument : arguments) {
        if (QDir::isAbsolutePath(argument))
            openFile(QDir::cleanPath(argument));
        else if (argument != QLatin1String("--") && !argument.isEmpty())
            tell(tr("“%1” is no file that can be found from here.").arg(argument));
    }
}

void ViewerWindow::openFile(const QString& path)
{
    if (!isWanted(path))
        return;
    const TextFile file = readTextFile(path);
    if (file.problem.isEmpty()) {
        showText(path, file.text);
        qInfo().noquote() << "opened" << path;
    } else {
        tell(file.problem);
        qInfo().noquote() << "not opened:" << file.problem;
    }
}

bool ViewerWindow::isWanted(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() <= largeFile)
        return true;
    const QString question =
        tr("“%1” is large (%2 MiB). Open it?").arg(info.fileName()).arg(info.size() >> 20);
    return QMessageBox::question(this, QString(), question) == QMessageBox::Yes;
}

void ViewerWindow::showText(const QString& path, const QString& text)
{
    auto* view = tabs->findChild<QPlainTextEdit*>(path);
    if (!view) {
        view = new QPlainTextEdit(tabs);
        view->setObjectName(path);
        view->setReadOnly(true);
        view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        QString label = QFileInfo(path).fileName();
        tabs->addTab(view, label.replace(QLatin1Char('&'), QLatin1String("&&")));
        tabs->setTabToolTip(tabs->indexOf(view), path);
    }
    view->setPlainText(text);
    tabs->setCurrentWidget(view);
}

void ViewerWindow::tell(const QString& text)
{
    QStringList lines = notice->text().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.append(text);
    notice->setText(lines.mid(lines.size() - noticedLines).join(QLatin1Char('\n')));
    notice->show();
}

void ViewerWindow::openFromOtherLaunch(const QStringList& arguments)
{
    present();
    open(arguments);
}

/*
 * Also brings the window back when it was closed while a launch was handing over. A question that
 * is open stays in front of it.
 */
void ViewerWindow::present()
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    QWidget* const question = QApplication::activeModalWidget();
    QWidget* const front = question ? question : this;
    front->raise();
    front->activateWindow();
}

void ViewerWindow::chooseFiles()
{
    open(QFileDialog::getOpenFileNames(this));
}
