#include "ConvertedUnit.h"

#include <utility>

namespace {
// International foot, exactly.
constexpr double metresPerFoot = 0.3048;
} // namespace

ConvertedUnit::ConvertedUnit(std::string name, std::string symbol, double factorFromBase)
    : name(std::move(name))
    , symbol(std::move(symbol))
    , factorFromBase(factorFromBase)
{
}

double ConvertedUnit::convertToBase(double value) const
{
    return value / factorFromBase;
}
double ConvertedUnit::getFactorFromBase() const
{
    return factorFromBase;
}
double ConvertedUnit::convertFromBase(double value) const
{
    return value * factorFromBase;
}
std::string ConvertedUnit::getName() const
{
    return name;
}
bool ConvertedUnit::isBaseUnit() const
{
    return factorFromBase == 1.0;
}
std::string ConvertedUnit::getSymbol() const
{
    return symbol;
}

const ConvertedUnit& ConvertedUnit::metres()
{
    static const ConvertedUnit unit("metres", "m", 1.0);
    return unit;
}

const ConvertedUnit& ConvertedUnit::feet()
{
    static const ConvertedUnit unit("feet", "ft", 1.0 / metresPerFoot);
    return unit;
}

const ConvertedUnit& ConvertedUnit::squareMetres()
{
    static const ConvertedUnit unit("square metres", "m\u00b2", 1.0);
    return unit;
}

const ConvertedUnit& ConvertedUnit::squareFeet()
{
    static const ConvertedUnit unit("square feet", "ft\u00b2", 1.0 / (metresPerFoot * metresPerFoot));
    return unit;
}
