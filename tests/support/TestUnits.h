#pragma once

#include "units/AbstractUnit.h"

#include <string>

namespace TestSupport {

/// A unit that is a fixed multiple of the base unit.
class ScaledUnit : public Halcyra::DataProcessing::Units::AbstractUnit
{
public:
    ScaledUnit(double factorFromBase, std::string symbol)
        : factor(factorFromBase), unitSymbol(std::move(symbol))
    {
    }

    double convertToBase(double value) const override { return value / factor; }
    double getFactorFromBase() const override { return factor; }
    double convertFromBase(double value) const override { return value * factor; }
    std::string getName() const override { return unitSymbol; }
    bool isBaseUnit() const override { return factor == 1.0; }
    std::string getSymbol() const override { return unitSymbol; }

private:
    double factor;
    std::string unitSymbol;
};

inline ScaledUnit metres() { return ScaledUnit(1.0, "m"); }
inline ScaledUnit feet() { return ScaledUnit(1.0 / 0.3048, "ft"); }
inline ScaledUnit squareMetres() { return ScaledUnit(1.0, "m\u00b2"); }

} // namespace TestSupport
