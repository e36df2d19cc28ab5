#include "MainWindow.h"
#include "ViewerOptions.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    // The magnifier draws with the fan display's GL objects; in a floating dock it
    // lives in another window, whose context must share them.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication application(argc, argv);
    QCoreApplication::setOrganizationName("Ternwick");
    QCoreApplication::setApplicationName("nereon-viewer");

    const ViewerOptions options = ViewerOptions::parse(QCoreApplication::arguments());
    if (!options.error.isEmpty()) {
        std::fprintf(options.helpShown ? stdout : stderr, "%s\n", qPrintable(options.error));
        return options.helpShown ? 0 : 2;
    }

    MainWindow window(options);
    window.show();
    return QApplication::exec();
}
