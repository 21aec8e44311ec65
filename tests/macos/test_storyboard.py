"""The storyboard and the classes that it makes name the same things."""

import re
import sys
import unittest
import xml.etree.ElementTree as ET
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import storyboard
from sources import MACOS, PROJECT, declarations, implementation, method, texts

STORYBOARD = MACOS / "TessarinUserAgent/resources/Base.lproj/Main.storyboard"
PORTABLE = PROJECT / "common/TessarinUserAgent/include/useragent"


def classes() -> storyboard.Classes:
    return {name: one for (kind, name), one in declarations().items() if kind == "interface"}


def constants(header: str, pattern: str) -> set[str]:
    return set(re.findall(rf'constexpr const char\* {pattern} = "(\w+)";', (PORTABLE / header).read_text()))


class Storyboard(unittest.TestCase):
    text = STORYBOARD.read_text()
    scenes = texts(r'instantiateControllerWithIdentifier:@"(\w+)"')
    special = constants("FileFiltersViewController.h", r"k\w+Column")
    keys = constants("FilterRecord.h", r"kFilter\w+Key")

    def findings(self, text: str) -> list[str]:
        return storyboard.findings(ET.fromstring(text), classes(), self.scenes, self.special, self.keys)

    def test_and_the_code_agree(self) -> None:
        self.assertEqual(self.findings(self.text), [])

    def test_is_the_one_that_the_code_loads(self) -> None:
        self.assertEqual(texts(r'storyboardWithName:@"(\w+)"'), {STORYBOARD.stem})

    def test_something_was_compared(self) -> None:
        self.assertEqual((self.scenes, self.special),
                         ({"FileFiltersViewController"}, {"SensitiveType", "Count", "costUsd"}))
        self.assertGreater(len(self.keys), 10)
        outlets = {f"{name}.{outlet}" for name, one in classes().items() for outlet in one.outlets}
        self.assertEqual(len(outlets), 14, sorted(outlets))
        self.assertEqual({action for one in classes().values() for action in one.actions()},
                         {"option1Selected:", "option2Selected:", "option3Selected:"})

    def test_every_kind_of_disagreement_is_noticed(self) -> None:
        for old, new, finding in (
                ('property="serverIDLabel"', 'property="serverLabel"', "declares no outlet serverLabel"),
                ('property="serverIDLabel"', 'property="serverLabel"', "serverIDLabel is not connected"),
                ('selector="option2Selected:"', 'selector="option4Selected:"', "declares no action option4Selected:"),
                ('selector="option2Selected:"', 'selector="option4Selected:"', "nothing sends the action AppMenu.option2Selected:"),
                ('selector="terminate:"', 'selector="stopIt:"', "known to answer stopIt:"),
                ('customClass="AppMenu"', 'customClass="AppMenus"', "AppMenus, which does not exist"),
                ('customClass="AppMenu"', 'customClass="AppDelegate"', "makes it of a menu"),
                ('storyboardIdentifier="FileFiltersViewController"', 'storyboardIdentifier="Filters"',
                 "asks for the scene FileFiltersViewController"),
                ('storyboardIdentifier="FileFiltersViewController"', 'storyboardIdentifier="Filters"',
                 "nothing asks for the scene Filters"),
                ('identifier="Count"', 'identifier="Counts"', "the column Counts is neither"),
                ('identifier="Count"', 'identifier="Counts"', "the column Count is missing"),
                ('property="dataSource"', 'property="source"', "tableView has no outlet source"),
                (re.findall(r'property="tableView" destination="([\w-]+)"', self.text)[0], "aaa-bb-ccc", "which does not exist")):
            with self.subTest(finding):
                self.assertIn(old, self.text)
                changed = self.text.replace(f"destination=\"{old}\"" if "-" in old else old,
                                            f"destination=\"{new}\"" if "-" in old else new)
                self.assertTrue(any(finding in one for one in self.findings(changed)), self.findings(changed))

    def test_an_outlet_to_another_kind_of_element_is_noticed(self) -> None:
        document = ET.fromstring(self.text)
        outlet = document.find(".//outlet[@property='tableView']")
        other = document.find(".//outlet[@property='fileNameLabel']")
        assert outlet is not None and other is not None
        outlet.set("destination", other.get("destination", ""))
        self.assertIn("FileFiltersViewController.tableView is a NSTableView, the storyboard connects a textField",
                      self.findings(ET.tostring(document, encoding="unicode")))

    def test_an_id_that_is_given_twice_is_noticed(self) -> None:
        document = ET.fromstring(self.text)
        first, second = document.findall(".//menuItem")[:2]
        second.set("id", first.get("id", ""))
        self.assertTrue(any("given twice" in one for one in self.findings(ET.tostring(document, encoding="unicode"))))

    def test_headers_of_numbers_stand_at_the_right_as_the_numbers_do(self) -> None:
        headers = {column.get("identifier"): column.find("tableHeaderCell").get("alignment")
                   for column in ET.fromstring(self.text).iter("tableColumn")}
        self.assertEqual(headers, {"Name": None, "SensitiveType": None, "Count": "right", "costUsd": "right"})

    def test_the_delegate_of_application_and_table_are_the_classes_that_adopt_the_protocols(self) -> None:
        document = ET.fromstring(self.text)
        elements = storyboard.by_id(document)
        found = {}
        for element, outlet in storyboard.connections(document, "outlet"):
            if storyboard.platform_class(element):
                found[element.tag, outlet.get("property")] = elements[outlet.get("destination", "")].get("customClass", "")
        self.assertEqual(found, {("application", "delegate"): "AppDelegate",
                                 ("tableView", "dataSource"): "FileFiltersViewController",
                                 ("tableView", "delegate"): "FileFiltersViewController"})
        declared = classes()
        self.assertEqual(declared["AppDelegate"].adopts, ["NSApplicationDelegate", "NSMenuDelegate", "NSWindowDelegate"])
        self.assertEqual(declared["FileFiltersViewController"].adopts, ["NSTableViewDataSource", "NSTableViewDelegate"])


class Classes(unittest.TestCase):
    """The names by which other programs and the platform know the classes."""

    def test_delegate_has_its_properties_and_selectors(self) -> None:
        delegate = classes()["AppDelegate"]
        self.assertEqual(list(delegate.properties),
                         ["appMenu", "fileFiltersWindows", "statusItem", "XPCClient", "menuUpdateTimer"])
        source = implementation("AppDelegate")
        for selector in ("applicationDidFinishLaunching:", "checkAgentIconPermission", "updateMenu", "menuNeedsUpdate:",
                         "applicationSupportsSecureRestorableState:", "application:openURLs:", "showFileFiltersForFile:",
                         "checkFileEncryption:", "windowWillClose:"):
            self.assertIn(selector, selectors(source))

    def test_menu_has_its_outlets_and_selectors(self) -> None:
        self.assertEqual(list(classes()["AppMenu"].outlets),
                         ["fulldiskItem", "accessibilityItem", "finderItem", "versionItem"])
        self.assertLessEqual({"updateMenuWithFulldiskAccess:", "option1Selected:", "option2Selected:", "option3Selected:"},
                             selectors(implementation("AppMenu")))

    def test_view_controller_has_its_properties_and_selectors(self) -> None:
        self.assertEqual(list(classes()["FileFiltersViewController"].properties),
                         ["filtersArray", "fileName", "isEncrypted", "tableView", "fileNameLabel", "fileStateLabel",
                          "serverIDLabel", "totalRiskLabel", "totalSensetiveRiskLabel", "encryptionStatusLabel",
                          "encryptionPredictLabel", "encryptionInfo"])
        self.assertLessEqual({"viewDidLoad", "numberOfRowsInTableView:", "tableView:objectValueForTableColumn:row:",
                              "getFilterCost:"}, selectors(implementation("FileFiltersViewController")))

    def test_utilities_have_their_selectors(self) -> None:
        self.assertEqual(selectors(implementation("AuthorizationUtils")),
                         {"authorizationForRootAction:", "askAuthorizationForRight:",
                          "askAuthorizationForRight:localizedMessage:", "askAuthorizationForRight:localizedMessage:flags:"})
        self.assertEqual(selectors(implementation("FileWatch")), {"initWithURL:withDelegate:", "dealloc"})


def selectors(source: str) -> set[str]:
    """The selectors of the methods that an implementation defines."""
    return {method(signature).selector
            for signature in re.findall(r"^[-+]\s*(\(.*?)\s*\{$", source, re.DOTALL | re.MULTILINE)}


if __name__ == "__main__":
    unittest.main()
