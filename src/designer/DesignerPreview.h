#pragma once

#include "nereon/NereonImage.h"
#include "units/AbstractUnit.h"

namespace Halcyra::Nereon::Visualisation {
class FanDisplay;
}

/**
 * What a display shows on a form in Qt Designer: a sample frame (a 130° fan of
 * a sloping seabed with a few targets, 40 m range) and metres for the range
 * labels. Shared by the plugins; the unit must outlive every previewed display,
 * so the plugin collection owns it until Designer unloads the plugin.
 */
class DesignerPreview
{
public:
    DesignerPreview();

    /// Gives the display the sample frame and the preview's distance unit.
    void show(Halcyra::Nereon::Visualisation::FanDisplay& display) const;

private:
    class Metres : public Halcyra::DataProcessing::Units::AbstractUnit
    {
    public:
        double convertToBase(double value) const override { return value; }
        double getFactorFromBase() const override { return 1.0; }
        double convertFromBase(double value) const override { return value; }
        std::string getName() const override { return "metres"; }
        bool isBaseUnit() const override { return true; }
        std::string getSymbol() const override { return "m"; }
    };

    Metres metres;
    Halcyra::Nereon::NereonImage frame;
};
