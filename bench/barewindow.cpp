// The yardstick of the start-up benchmark: the least a Qt Widgets program does to show a
// window of the printer list's size (439 x 377) with N text items in a list.
//
//   barewindow N
//
// It runs with the toolkit's settings as the environment gives them; it changes none.

#include <QApplication>
#include <QListWidget>
#include <QWidget>

#include <cstdlib>

int main(int argc, char **argv)
{
    const int items = argc > 1 ? std::atoi(argv[1]) : 0;
    QApplication app(argc, argv);
    QWidget window;
    window.setFixedSize(439, 377);
    window.setWindowTitle(QStringLiteral("Bare window"));
    auto *list = new QListWidget(&window);
    list->setGeometry(10, 90, 291, 221);
    for (int i = 0; i < items; ++i)
        list->addItem(QStringLiteral("Printer%1").arg(i));
    window.show();
    return app.exec();
}
