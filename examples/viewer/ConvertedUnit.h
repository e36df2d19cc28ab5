#pragma once

#include "units/AbstractUnit.h"

#include <string>

/**
 * A unit that is a fixed multiple of its base unit (metres or square metres).
 * The viewer owns one of each and lends them to the display.
 */
class ConvertedUnit : public Halcyra::DataProcessing::Units::AbstractUnit
{
public:
    /// @param factorFromBase how many of this unit make one base unit
    ConvertedUnit(std::string name, std::string symbol, double factorFromBase);

    double convertToBase(double value) const override;
    double getFactorFromBase() const override;
    double convertFromBase(double value) const override;
    std::string getName() const override;
    bool isBaseUnit() const override;
    std::string getSymbol() const override;

    static const ConvertedUnit& metres();
    static const ConvertedUnit& feet();
    static const ConvertedUnit& squareMetres();
    static const ConvertedUnit& squareFeet();

private:
    std::string name;
    std::string symbol;
    double factorFromBase;
};
