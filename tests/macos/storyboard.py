"""Compares a storyboard with the classes it names. A finding is a sentence for the developer."""

import xml.etree.ElementTree as ET
from typing import Iterator

from sources import Declaration

# What the outlets of the code may hold: type in the code, element of the storyboard.
ELEMENTS = {"NSTextField": "textField", "NSTableView": "tableView", "NSMenuItem": "menuItem", "NSButton": "button"}
# Outlets of the platform's own classes, by the element they start from.
PLATFORM_OUTLETS = {"application": {"delegate"}, "tableView": {"dataSource", "delegate"}}
# Actions of the platform that anybody in the responder chain answers.
PLATFORM_ACTIONS = {"copy:", "performClose:", "selectAll:", "terminate:"}

Classes = dict[str, Declaration]


def platform_class(element: ET.Element) -> bool:
    return element.get("customClass", "NS").startswith("NS")


def by_id(document: ET.Element) -> dict[str, ET.Element]:
    return {element.get("id", ""): element for element in document.iter() if element.get("id")}


def connections(document: ET.Element, kind: str) -> Iterator[tuple[ET.Element, ET.Element]]:
    """Every element with each of its connections of a kind ("outlet", "action")."""
    for element in document.iter():
        for connection in element.findall(f"connections/{kind}"):
            yield element, connection


def reference_findings(document: ET.Element) -> Iterator[str]:
    identifiers = [element.get("id") for element in document.iter() if element.get("id")]
    for identifier in sorted({one for one in identifiers if identifiers.count(one) > 1}):
        yield f"the id {identifier} is given twice"
    for element in document.iter():
        for attribute in ("destination", "target", "firstItem", "secondItem", "headerView"):
            value = element.get(attribute)
            if value and value not in identifiers:
                yield f"{element.tag} {element.get('id')} refers to {value}, which does not exist"


def outlet_findings(document: ET.Element, classes: Classes) -> Iterator[str]:
    elements = by_id(document)
    connected: dict[str, set[str]] = {}
    for element, outlet in connections(document, "outlet"):
        name, destination = outlet.get("property", ""), elements.get(outlet.get("destination", ""))
        if platform_class(element):
            if name not in PLATFORM_OUTLETS.get(element.tag, set()):
                yield f"{element.tag} has no outlet {name}"
            continue
        custom = element.get("customClass", "")
        declared = classes[custom].outlets.get(name) if custom in classes else None
        if declared is None:
            yield f"{custom} declares no outlet {name}"
        elif destination is not None and not fits(destination, declared):
            yield f"{custom}.{name} is a {declared}, the storyboard connects a {destination.tag}"
        connected.setdefault(custom, set()).add(name)
    for element in document.iter():
        custom = element.get("customClass", "")
        if custom in classes:
            for name in sorted(set(classes[custom].outlets) - connected.get(custom, set())):
                yield f"the outlet {custom}.{name} is not connected"


def fits(element: ET.Element, declared: str) -> bool:
    return element.get("customClass") == declared or \
        (platform_class(element) and element.tag == ELEMENTS.get(declared))


def action_findings(document: ET.Element, classes: Classes) -> Iterator[str]:
    elements = by_id(document)
    used: dict[str, set[str]] = {}
    for _, action in connections(document, "action"):
        selector, target = action.get("selector", ""), elements.get(action.get("target", ""))
        if target is None:
            continue
        custom = target.get("customClass", "")
        if platform_class(target):
            if selector not in PLATFORM_ACTIONS:
                yield f"nothing of the platform is known to answer {selector}"
        elif custom not in classes or selector not in classes[custom].actions():
            yield f"{custom} declares no action {selector}"
        else:
            used.setdefault(custom, set()).add(selector)
    for custom in {element.get("customClass", "") for element in document.iter()} & set(classes):
        for selector in sorted(classes[custom].actions() - used.get(custom, set())):
            yield f"nothing sends the action {custom}.{selector}"


def class_findings(document: ET.Element, classes: Classes) -> Iterator[str]:
    named = {element.get("customClass", "") for element in document.iter() if not platform_class(element)}
    for custom in sorted(named - set(classes)):
        yield f"the storyboard names the class {custom}, which does not exist"
    for custom in sorted(name for name, one in classes.items() if (one.outlets or one.actions()) and name not in named):
        yield f"the class {custom} has outlets or actions, the storyboard does not name it"
    for element in document.iter():
        superclass = {"menu": "NSMenu", "viewController": "NSViewController", "customObject": "NSObject"}.get(element.tag)
        custom = element.get("customClass", "")
        if custom in classes and classes[custom].superclass != superclass:
            yield f"{custom} is a {classes[custom].superclass}, the storyboard makes it of a {element.tag}"


def identifier_findings(document: ET.Element, in_code: set[str]) -> Iterator[str]:
    identifiers = {element.get("storyboardIdentifier", "") for element in document.iter()} - {""}
    for identifier in sorted(in_code - identifiers):
        yield f"the code asks for the scene {identifier}, which does not exist"
    for identifier in sorted(identifiers - in_code):
        yield f"nothing asks for the scene {identifier}"


def column_findings(document: ET.Element, special: set[str], keys: set[str]) -> Iterator[str]:
    columns = [column.get("identifier", "") for column in document.iter("tableColumn")]
    for column in columns:
        if column not in special | keys:
            yield f"the column {column} is neither special nor a key of a record"
        if columns.count(column) > 1:
            yield f"the column {column} stands there twice"
    for column in sorted(special - set(columns)):
        yield f"the column {column} is missing"


def findings(document: ET.Element, classes: Classes, scenes: set[str], special: set[str], keys: set[str]) -> list[str]:
    return [*reference_findings(document), *class_findings(document, classes), *outlet_findings(document, classes),
            *action_findings(document, classes), *identifier_findings(document, scenes),
            *column_findings(document, special, keys)]
