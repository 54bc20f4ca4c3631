#include "ViewerWindow.h"

#include "TextFile.h"

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtGui/QFontDatabase>
#include <QtGui/QTextDocument>
#include <QtWidgets/QApplication>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QTabWidget>
#include <QtWidgets/QVBoxLayout>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

constexpr qint64 largeFile = 1 << 20; // bytes
constexpr qint64 largestFile = 8 << 20; // a file of line breaks takes 3 GB and 40 s to show
constexpr int noticedLines = 6;
constexpr int namedFiles = 3; // in a question

/* Any local process may send anything. */
QString pathOf(const QString& argument)
{
    const QUrl url(argument);
    return QDir::cleanPath(url.isLocalFile() ? url.toLocalFile() : argument);
}

} // namespace

ViewerWindow::ViewerWindow()
    : notice(new QLabel(this))
    , tabs(new QTabWidget(this))
{
    notice->setTextFormat(Qt::PlainText); // any process may choose the names that it quotes
    notice->setWordWrap(true);
    notice->setMargin(8);
    notice->hide();
    tabs->setDocumentMode(true);
    tabs->setTabsClosable(true);
    connect(tabs, &QTabWidget::tabCloseRequested, this, &ViewerWindow::closeTab);

    auto* const content = new QWidget(this);
    auto* const layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(notice);
    layout->addWidget(tabs);
    setCentralWidget(content);

    QMenu* const menu = menuBar()->addMenu(tr("&File"));
    menu->addAction(tr("&Open…"), this, &ViewerWindow::chooseFiles)
        ->setShortcut(QKeySequence::Open);
    menu->addAction(tr("&Close Tab"), this, [this] { closeTab(tabs->currentIndex()); })
        ->setShortcut(QKeySequence::Close);
    menu->addAction(tr("&Quit"), this, &QWidget::close)->setShortcut(QKeySequence::Quit);
    resize(720, 480);
}

void ViewerWindow::open(const QStringList& files)
{
    for (const QString& file : files)
        openFile(pathOf(file));
}

void ViewerWindow::openFile(const QString& path)
{
    if (large.contains(path))
        return;
    if (!QDir::isAbsolutePath(path)) {
        refuse(path, tr("“%1” is no file that can be found from here.").arg(path));
        return;
    }
    const TextFile file = readTextFile(path, largeFile);
    if (file.isLonger)
        askAbout(path);
    else
        showFile(path, file);
}

/* Does not block: files that are handed over meanwhile are opened, or added to the question. */
void ViewerWindow::askAbout(const QString& path)
{
    large.append(path);
    if (!question) {
        question = new QMessageBox(QMessageBox::Question, QString(), QString(),
                                   QMessageBox::Yes | QMessageBox::No, this);
        question->setAttribute(Qt::WA_DeleteOnClose);
        question->setTextFormat(Qt::PlainText); // any process may choose the names that it quotes
        connect(question, &QDialog::finished, this, &ViewerWindow::openAsked);
    }
    QStringList names;
    for (const QString& each : large.mid(0, namedFiles))
        names.append(tr("“%1”").arg(QFileInfo(each).fileName()));
    if (large.size() > namedFiles)
        names.append(tr("%n more", nullptr, int(large.size()) - namedFiles));
    question->setText(
        tr("More than %1 MiB: %2. Open?").arg(largeFile >> 20).arg(names.join(tr(", "))));
    question->show();
}

void ViewerWindow::openAsked(int answer)
{
    question.clear(); // it is deleted soon: the next question needs another
    const QStringList asked = std::exchange(large, {});
    for (const QString& path : asked) {
        if (answer != QMessageBox::Yes) {
            release(path);
            continue;
        }
        TextFile file = readTextFile(path, largestFile);
        if (file.isLonger)
            file.problem = tr("“%1” has more than %2 MiB.").arg(path).arg(largestFile >> 20);
        showFile(path, file);
    }
}

void ViewerWindow::showFile(const QString& path, const TextFile& file)
{
    if (file.problem.isEmpty()) {
        showText(path, file.text);
        qInfo().noquote() << "opened" << path;
    } else {
        refuse(path, file.problem);
    }
}

void ViewerWindow::closeTab(int index)
{
    const std::unique_ptr<QWidget> view(tabs->widget(index));
    if (view)
        release(view->objectName());
}

/* The last copy of a launch answers it when it goes. */
void ViewerWindow::release(const QString& path)
{
    for (WaitingLaunch& each : waiting)
        each.files.removeAll(path);
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(),
                                 [](const WaitingLaunch& each) { return each.files.isEmpty(); }),
                  waiting.end());
}

void ViewerWindow::refuse(const QString& path, const QString& problem)
{
    tell(problem);
    qInfo().noquote() << "not opened:" << problem;
    for (const WaitingLaunch& each : waiting) {
        if (each.files.contains(path))
            each.launch.answer(1, QStringLiteral("viewer: ") + problem + QLatin1Char('\n'));
    }
    release(path);
}

void ViewerWindow::showText(const QString& path, const QString& text)
{
    auto* view = tabs->findChild<QPlainTextEdit*>(path);
    if (!view) {
        view = new QPlainTextEdit(tabs);
        view->setObjectName(path);
        view->setReadOnly(true);
        // To wrap a line of a million letters would take minutes.
        view->setLineWrapMode(QPlainTextEdit::NoWrap);
        view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        QString label = QFileInfo(path).fileName();
        tabs->addTab(view, label.replace(QLatin1Char('&'), QLatin1String("&&")));
        tabs->setTabToolTip(tabs->indexOf(view), Qt::convertFromPlainText(path));
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

void ViewerWindow::openFromOtherLaunch(const QStringList& files,
                                       const HostKit::ReceivedLaunch& launch)
{
    present();
    QStringList paths;
    for (const QString& file : files)
        paths.append(pathOf(file));
    if (launch.isWaiting() && !paths.isEmpty())
        waiting.append({launch, paths});
    open(files);
}

/* A question that is open stays in front of the window. */
void ViewerWindow::present()
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        hide(); // Qt 5 cannot activate a window there; a new one comes to the front
        show();
        return;
    }
#endif
    raise();
    QWidget* const dialog = QApplication::activeModalWidget();
    QWidget* const asking = question ? static_cast<QWidget*>(question) : this;
    QWidget* const front = dialog ? dialog : asking;
    front->raise();
    front->activateWindow();
}

void ViewerWindow::chooseFiles()
{
    open(QFileDialog::getOpenFileNames(this));
}
