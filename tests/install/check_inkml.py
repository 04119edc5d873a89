#!/usr/bin/python3
"""check_inkml.py FILE: prints each rule of the W3C's InkML 1.0 (recommendation of 20 September 2011) that the
file breaks; nothing when it keeps them. Knows the elements that vela-capture writes, and takes no others."""

import re
import sys
import xml.etree.ElementTree as ElementTree

INK = "{http://www.w3.org/2003/InkML}"
ID = "{http://www.w3.org/XML/1998/namespace}id"
UNITS = {"dev", "m", "cm", "mm", "in", "pt", "pc", "em", "ex", "s", "ms", "Kg", "g", "mg", "N", "lb", "deg", "rad", "%"}
NAMES = {"X", "Y", "Z", "F", "S", "W", "T", "C", "OTx", "OTy", "OA", "OE", "OR"}

# By element: its children as a regular expression over their names, each followed by a blank; its required
# attributes; its optional attributes.
GRAMMAR = {
    "ink": ("((definitions|context|trace|traceGroup|traceView|annotation|annotationXML) )*", set(), {"documentID"}),
    "definitions": ("((brush|canvas|canvasTransform|context|inkSource|mapping|timestamp|trace|traceFormat) )*",
                    set(), set()),
    "timestamp": ("", {ID}, {"time", "timestampRef", "timeString", "timeOffset"}),
    "inkSource": ("traceFormat (sampleRate )?(latency )?(activeArea )?(sourceProperty )*(channelProperties )?", {ID},
                  {"manufacturer", "model", "serialNo", "specificationRef", "description"}),
    "traceFormat": ("(channel )*(intermittentChannels )?", set(), {ID}),
    "channel": ("(mapping )?", {"name"}, {ID, "type", "default", "min", "max", "orientation", "respectTo", "units"}),
    "activeArea": ("", set(), {"size", "height", "width", "units"}),
    "channelProperties": ("(channelProperty )+", set(), set()),
    "channelProperty": ("", {"channel", "name", "value"}, {"units"}),
    "context": ("(canvas )?(canvasTransform )?(traceFormat )?(inkSource )?(brush )?(timestamp )?", set(),
                {ID, "contextRef", "canvasRef", "canvasTransformRef", "traceFormatRef", "inkSourceRef", "brushRef",
                 "timestampRef"}),
    "trace": ("", set(), {ID, "type", "continuation", "priorRef", "contextRef", "brushRef", "duration", "timeOffset"}),
}
# The allowed values of attributes; references are checked separately.
VALUES = {
    ("timestamp", "time"): r"\d+",
    ("channel", "type"): "integer|decimal|double|boolean",
    ("channel", "min"): r"-?\d+",
    ("channel", "max"): r"-?\d+",
    ("channel", "orientation"): r"\+ve|-ve",
    ("activeArea", "width"): r"\d+(\.\d+)?",
    ("activeArea", "height"): r"\d+(\.\d+)?",
    ("channelProperty", "value"): r"-?\d+(\.\d+)?",
    ("trace", "type"): "penDown|penUp|indeterminate",
}
REFERENCES = {"contextRef": "context", "inkSourceRef": "inkSource", "traceFormatRef": "traceFormat",
              "timestampRef": "timestamp", "respectTo": "timestamp"}

broken = []


def expect(kept, rule):
    if not kept:
        broken.append(rule)


def name_of(element):
    return element.tag.removeprefix(INK)


def check_element(element, ids):
    name = name_of(element)
    expect(element.tag.startswith(INK), f"{element.tag} is in another namespace")
    if name not in GRAMMAR:
        expect(False, f"there is no element {name}")
        return
    children, needed, allowed = GRAMMAR[name]
    found = "".join(name_of(child) + " " for child in element)
    expect(re.fullmatch(children, found), f"{name} contains {found}")
    expect(needed <= set(element.keys()), f"{name} lacks one of {needed}")
    expect(set(element.keys()) <= needed | allowed, f"{name} has other attributes than {needed | allowed}")
    expect(name == "trace" or not (element.text or "").strip(), f"{name} contains text")
    for attribute, value in element.items():
        pattern = VALUES.get((name, attribute))
        expect(pattern is None or re.fullmatch(pattern, value), f"{name} has the {attribute} {value}")
        if attribute in REFERENCES:
            target = ids.get(value.removeprefix("#"))
            expect(value.startswith("#") and target is not None and name_of(target) == REFERENCES[attribute],
                   f"{name}'s {attribute} {value} leads nowhere")
        if attribute == "units":
            expect(value.removeprefix("1/") in UNITS, f"there is no unit {value}")
    for child in element:
        check_element(child, ids)


def check_trace(trace, channels):
    """One value for each channel, integers without leading signs of difference, within the channel's range."""
    for point in trace.text.split(","):
        values = point.split()
        expect(len(values) == len(channels), f"the point {point} does not have {len(channels)} values")
        for value, channel in zip(values, channels):
            if not re.fullmatch(r"-?\d+", value):
                expect(False, f"{value} is no integer")
            elif not int(channel.get("min", value)) <= int(value) <= int(channel.get("max", value)):
                expect(False, f"{value} is out of the range of {channel.get('name')}")


root = ElementTree.parse(sys.argv[1]).getroot()
expect(root.tag == INK + "ink", f"the root is {root.tag}")
identified = [element for element in root.iter() if ID in element.keys()]
ids = {element.get(ID): element for element in identified}
expect(len(ids) == len(identified), "an id stands twice")
check_element(root, ids)
channels = root.findall(f".//{INK}channel")
names = [channel.get("name") for channel in channels]
expect(set(names) <= NAMES and len(set(names)) == len(names), f"the channels are {names}")
for channel_property in root.iter(INK + "channelProperty"):
    expect(channel_property.get("channel") in names, f"there is no channel {channel_property.get('channel')}")
for trace in root.iter(INK + "trace"):
    check_trace(trace, channels)
print("\n".join(broken))
