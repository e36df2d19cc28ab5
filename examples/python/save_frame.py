#!/usr/bin/env python3
"""Replays a recording (.nrec or .aris) through a fan display and saves a PNG
of one frame, as the display draws it.

    python3 save_frame.py RECORDING FRAME OUTPUT.png [--size WxH] [--palette NAME] [--pyqt6]

FRAME counts from 1. Without a display, run it under xvfb-run.
"""

import argparse
import sys

args_pyqt6 = "--pyqt6" in sys.argv
if args_pyqt6:
    from PyQt6 import QtCore, QtWidgets
else:
    from PyQt5 import QtCore, QtWidgets

import ternwick_nereon as tn

PALETTES = ["Greyscale", "Bronze", "Blue", "Green", "RedYellow", "Multicolour", "Fire", "Aqua"]


def palette_name(text):
    """The palette called `text`, in any case and with or without a hyphen ("fire", "red-yellow")."""
    wanted = text.replace("-", "").replace("_", "").lower()
    for name in PALETTES:
        if name.lower() == wanted:
            return name
    raise argparse.ArgumentTypeError("no palette {!r} (choose from {})".format(text, ", ".join(PALETTES)))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recording")
    parser.add_argument("frame", type=int)
    parser.add_argument("output")
    parser.add_argument("--size", default="1000x700")
    parser.add_argument("--palette", type=palette_name, default="Multicolour", metavar="NAME",
                        help="one of {} in any case (default: %(default)s)".format(", ".join(PALETTES)))
    parser.add_argument("--pyqt6", action="store_true")
    args = parser.parse_args()
    width, height = (int(v) for v in args.size.split("x"))

    app = QtWidgets.QApplication(sys.argv[:1])
    try:
        reader = tn.open_recording(args.recording)
    except OSError as error:
        sys.exit("save_frame: {}".format(error))
    if not 1 <= args.frame <= len(reader):
        sys.exit("save_frame: {} has frames 1 to {}".format(args.recording, len(reader)))

    display = tn.FanDisplay()
    display.setDistanceUnit(tn.Metres())
    display.setPalette(getattr(tn.FanDisplayOptions.Palette, args.palette))
    display.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeLabels, True)
    display.setOverlayFeature(tn.FanDisplayOptions.OverlayFeature.RangeArcs, True)
    display.resize(width, height)
    display.show()
    # Replayed in order, as a player would, up to the chosen frame.
    for frame in reader:
        display.newImageReceived(frame.image)
        app.processEvents()
        if frame.index + 1 == args.frame:
            break
    if reader.hasDamage():
        print("save_frame: " + reader.describeDamage(), file=sys.stderr)
    description = reader.getDescription()
    picture = display.grabFramebuffer()
    if not picture.save(args.output):
        sys.exit("save_frame: cannot write " + args.output)
    print("{}: frame {} of {} ({}, {} beams) to {}".format(args.recording, args.frame, len(reader),
                                                         description.model, description.beamCount, args.output))
    return 0


if __name__ == "__main__":
    sys.exit(main())
