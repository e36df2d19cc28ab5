#include "LinearUnit.h"

#include <utility>

namespace Halcyra::Nereon::Export {

LinearUnit::LinearUnit(std::string unitName, std::string unitSymbol, double factor)
    : name(std::move(unitName))
    , symbol(std::move(unitSymbol))
    , perBaseUnit(factor)
{
}

double LinearUnit::convertToBase(double value) const { return value / perBaseUnit; }
double LinearUnit::getFactorFromBase() const { return perBaseUnit; }
double LinearUnit::convertFromBase(double value) const { return value * perBaseUnit; }
std::string LinearUnit::getName() const { return name; }
bool LinearUnit::isBaseUnit() const { return perBaseUnit == 1.0; }
std::string LinearUnit::getSymbol() const { return symbol; }

} // namespace Halcyra::Nereon::Export
