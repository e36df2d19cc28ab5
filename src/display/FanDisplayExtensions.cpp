#include "FanDisplayExtensions.h"

#include "FanOverlayContext.h"
#include "display/FanDisplayHooks.h"
#include "display/FanDisplayPrivate.h"

#include <algorithm>

namespace Halcyra::Nereon::Visualisation {

namespace {

template <typename T> bool addOnce(std::vector<T*>& list, T* item)
{
    if (!item || std::find(list.begin(), list.end(), item) != list.end())
        return false;
    list.push_back(item);
    return true;
}

template <typename T> bool removeFrom(std::vector<T*>& list, T* item)
{
    const auto found = std::find(list.begin(), list.end(), item);
    if (found == list.end())
        return false;
    list.erase(found);
    return true;
}

} // namespace

void FanDisplayExtensions::attachOverlay(FanDisplay* display, FanOverlay* overlay)
{
    if (display && addOnce(FanDisplayHooks::of(*display).overlays, overlay))
        display->update();
}

void FanDisplayExtensions::detachOverlay(FanDisplay* display, FanOverlay* overlay)
{
    if (display && removeFrom(FanDisplayHooks::of(*display).overlays, overlay))
        display->update();
}

void FanDisplayExtensions::addMeasurementListener(FanDisplay* display, FanMeasurementListener* listener)
{
    if (display)
        addOnce(FanDisplayHooks::of(*display).listeners, listener);
}

void FanDisplayExtensions::removeMeasurementListener(FanDisplay* display, FanMeasurementListener* listener)
{
    if (display)
        removeFrom(FanDisplayHooks::of(*display).listeners, listener);
}

void FanDisplayExtensions::setMagnifierMeasuring(FanDisplay* display, bool enabled)
{
    if (display)
        FanDisplayHooks::of(*display).setMagnifierMeasuring(enabled);
}

bool FanDisplayExtensions::isMagnifierMeasuring(FanDisplay* display)
{
    return display && FanDisplayHooks::of(*display).isMagnifierMeasuring();
}

void FanDisplayExtensions::setTrueEdges(FanDisplay* display, bool enabled)
{
    if (!display)
        return;
    FanDisplayHooks::of(*display).setTrueEdges(enabled);
    display->update();
}

bool FanDisplayExtensions::hasTrueEdges(FanDisplay* display)
{
    return display && FanDisplayHooks::of(*display).hasTrueEdges();
}

void FanDisplayExtensions::setGridAwaitsFrame(FanDisplay* display, bool enabled)
{
    if (!display)
        return;
    FanDisplayHooks::of(*display).gridAwaitsFrame = enabled;
    display->update();
}

bool FanDisplayExtensions::isGridAwaitingFrame(FanDisplay* display)
{
    return display && FanDisplayHooks::of(*display).gridAwaitsFrame;
}

void FanDisplayExtensions::setLabelMargin(FanDisplay* display, bool enabled)
{
    if (!display)
        return;
    FanDisplayHooks::of(*display).labelMargin = enabled;
    display->update();
}

bool FanDisplayExtensions::hasLabelMargin(FanDisplay* display)
{
    return display && FanDisplayHooks::of(*display).labelMargin;
}

void FanDisplayExtensions::setMagnifierOutlineColour(FanDisplay* display, const QColor& colour)
{
    if (!display)
        return;
    FanDisplayHooks::outlineOf(*display).setColour(colour.isValid() ? colour : QColor(0, 128, 0));
    display->update();
}

QColor FanDisplayExtensions::getMagnifierOutlineColour(FanDisplay* display)
{
    return display ? FanDisplayHooks::outlineOf(*display).getColour() : QColor(0, 128, 0);
}

std::unique_ptr<FanOverlayContext> FanDisplayExtensions::contextFor(FanDisplay* display)
{
    if (!display)
        return nullptr;
    return FanDisplayHooks::of(*display).makeContext(*display, nullptr, false);
}

} // namespace Halcyra::Nereon::Visualisation
