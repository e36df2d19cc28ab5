#pragma once

#include <QIcon>
#include <QObject>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <functional>
#include <memory>

class DesignerPreview;

/**
 * Describes one of the library's display widgets to Qt Designer and creates it
 * for forms. Inside Designer (after initialize()) a new widget shows a sample
 * fan with range labels, so that a form looks like the running application;
 * loaded at run time through QUiLoader it is a plain widget that waits for
 * the application's frames and units.
 */
class DisplayDesignerPlugin : public QObject, public QDesignerCustomWidgetInterface
{
    Q_OBJECT
    Q_INTERFACES(QDesignerCustomWidgetInterface)

public:
    struct Description
    {
        QString className;
        QString includeFile;
        QString objectName; ///< name of a widget dropped on a form, numbered by Designer
        QString toolTip;
        QString whatsThis;
        QIcon (*icon)(); ///< drawn when Designer asks: pixmaps need the GUI application
        std::function<QWidget*(QWidget* parent)> create;
    };

    DisplayDesignerPlugin(
        Description description, std::shared_ptr<DesignerPreview> preview, QObject* parent = nullptr);
    ~DisplayDesignerPlugin() override;

    QString name() const override;
    QString group() const override;
    QString toolTip() const override;
    QString whatsThis() const override;
    QString includeFile() const override;
    QIcon icon() const override;
    bool isContainer() const override;
    QWidget* createWidget(QWidget* parent) override;
    bool isInitialized() const override;
    void initialize(QDesignerFormEditorInterface* core) override;
    QString domXml() const override;

private:
    Description description;
    std::shared_ptr<DesignerPreview> preview;
    bool initialised = false;
};
