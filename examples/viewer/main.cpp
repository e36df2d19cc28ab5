#include "MainWindow.h"
#include "ViewerOptions.h"

#include <QApplication>

#include <cstdio>

namespace {

/// Prints help or a mistake in the arguments; returns the exit status.
int report(const ViewerOptions& options)
{
    std::fprintf(options.helpShown ? stdout : stderr, "%s\n", qPrintable(options.error));
    return options.helpShown ? 0 : 2;
}

} // namespace

int main(int argc, char* argv[])
{
    // The magnifier draws with the fan display's GL objects; in a floating dock it
    // lives in another window, whose context must share them.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QCoreApplication::setOrganizationName("Ternwick");
    QCoreApplication::setApplicationName("nereon-viewer");

    // Help and mistakes in the arguments need no display. Only a GUI application
    // takes Qt's own options (-platform ...) out of the arguments, so a mistake is
    // reported here only when there can be none of those.
    {
        const QCoreApplication console(argc, argv);
        const QStringList arguments = QCoreApplication::arguments();
        const ViewerOptions options = ViewerOptions::parse(arguments);
        if (options.helpShown
            || (!options.error.isEmpty() && !ViewerOptions::mayHoldToolkitOptions(arguments)))
            return report(options);
    }

    QApplication application(argc, argv);
    const ViewerOptions options = ViewerOptions::parse(QCoreApplication::arguments());
    if (!options.error.isEmpty())
        return report(options);

    MainWindow window(options);
    window.show();
    return QApplication::exec();
}
