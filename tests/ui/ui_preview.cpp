// Shows a QML file that uses the shared components, or saves a picture of it:
//   ui_preview FILE.qml [OUT.png]
#include "ui/Ui.h"

#include <QGuiApplication>
#include <QQuickView>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    if (arguments.size() < 2) {
        std::fputs("usage: ui_preview FILE.qml [OUT.png]\n", stderr);
        return 2;
    }
    quellora::initializeUi();
    QQuickView view;
    quellora::prepareQmlEngine(*view.engine());
    view.setSource(QUrl::fromLocalFile(arguments.at(1)));
    if (view.status() != QQuickView::Ready)
        return 1;
    view.show();
    if (arguments.size() > 2) {
        QTimer::singleShot(1500, &app, [&view, &arguments] {
            QGuiApplication::exit(view.grabWindow().save(arguments.at(2)) ? 0 : 1);
        });
    }
    return QGuiApplication::exec();
}
