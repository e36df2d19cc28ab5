#pragma once

#include "units/AbstractUnit.h"

#include <string>

namespace Halcyra::Nereon::Export {

/// A unit that is a fixed multiple of metres (or square metres), for the labels of exported pictures.
class LinearUnit : public DataProcessing::Units::AbstractUnit
{
public:
    LinearUnit(std::string name, std::string symbol, double perBaseUnit);

    double convertToBase(double value) const override;
    double getFactorFromBase() const override;
    double convertFromBase(double value) const override;
    std::string getName() const override;
    bool isBaseUnit() const override;
    std::string getSymbol() const override;

private:
    std::string name;
    std::string symbol;
    double perBaseUnit;
};

} // namespace Halcyra::Nereon::Export
