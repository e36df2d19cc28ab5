#pragma once

#include "TernwickNereonVisualisationExport.h"

#include "units/AbstractUnit.h"

#include <string>

namespace Halcyra::Nereon::Visualisation {

/**
 * A unit that is a fixed multiple of its base unit: metres for distances, square
 * metres for areas. The ready-made ones live as long as the program, so they can be
 * lent to a display as they are:
 *
 * @code
 * display.setDistanceUnit(&LinearUnit::feet());
 * display.setAreaUnit(&LinearUnit::squareFeet());
 * @endcode
 */
class TERNWICK_NEREON_VISUALISATION_EXPORT LinearUnit : public DataProcessing::Units::AbstractUnit
{
public:
    /// A unit of which `perBaseUnit` make one base unit (3.28084 for feet), shown as `symbol`.
    LinearUnit(std::string name, std::string symbol, double perBaseUnit);

    double convertToBase(double value) const override;
    double getFactorFromBase() const override;
    double convertFromBase(double value) const override;
    std::string getName() const override;
    bool isBaseUnit() const override;
    std::string getSymbol() const override;

    /// Metres ("m"), the base unit of distances.
    static const LinearUnit& metres();
    /// International feet of 0.3048 m ("ft").
    static const LinearUnit& feet();
    /// Square metres ("m²"), the base unit of areas.
    static const LinearUnit& squareMetres();
    /// Square international feet ("ft²").
    static const LinearUnit& squareFeet();

private:
    std::string name;
    std::string symbol;
    double perBaseUnit;
};

} // namespace Halcyra::Nereon::Visualisation
