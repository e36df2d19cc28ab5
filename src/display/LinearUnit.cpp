#include "LinearUnit.h"

#include <utility>

namespace Halcyra::Nereon::Visualisation {

namespace {
// The international foot, exactly.
constexpr double metresPerFoot = 0.3048;
} // namespace

LinearUnit::LinearUnit(std::string unitName, std::string unitSymbol, double factor)
    : name(std::move(unitName))
    , symbol(std::move(unitSymbol))
    , perBaseUnit(factor)
{
}

double LinearUnit::convertToBase(double value) const
{
    return value / perBaseUnit;
}

double LinearUnit::getFactorFromBase() const
{
    return perBaseUnit;
}

double LinearUnit::convertFromBase(double value) const
{
    return value * perBaseUnit;
}

std::string LinearUnit::getName() const
{
    return name;
}

bool LinearUnit::isBaseUnit() const
{
    return perBaseUnit == 1.0;
}

std::string LinearUnit::getSymbol() const
{
    return symbol;
}

const LinearUnit& LinearUnit::metres()
{
    static const LinearUnit unit("metres", "m", 1.0);
    return unit;
}

const LinearUnit& LinearUnit::feet()
{
    static const LinearUnit unit("feet", "ft", 1.0 / metresPerFoot);
    return unit;
}

const LinearUnit& LinearUnit::squareMetres()
{
    static const LinearUnit unit("square metres", "m\u00b2", 1.0);
    return unit;
}

const LinearUnit& LinearUnit::squareFeet()
{
    static const LinearUnit unit("square feet", "ft\u00b2", 1.0 / (metresPerFoot * metresPerFoot));
    return unit;
}

} // namespace Halcyra::Nereon::Visualisation
