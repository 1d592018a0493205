"""Which branches of the model were reached."""

import pathlib
import tempfile
import xml.etree.ElementTree

import coverage

MODEL = pathlib.Path(__file__).resolve().parent / "reference"


def files():
    return sorted(str(path) for path in MODEL.glob("*.py"))


def new_coverage():
    return coverage.Coverage(branch=True, include=[f"{MODEL}/*"], data_file=None, config_file=False)


class Recorder:
    """Watches the model in one process. Made before the model is imported, so that its definitions count as reached."""

    def __init__(self):
        self.coverage = new_coverage()
        self.coverage.start()

    def pause(self):
        self.coverage.stop()

    def watch(self, body):
        """The result of body(), and the ways through the model so far, by file."""
        self.coverage.start()
        try:
            result = body()
        finally:
            self.coverage.stop()
        data = self.coverage.get_data()
        return result, {file: set(data.arcs(file) or ()) for file in data.measured_files()}


class Reached:
    """What all processes have reached together."""

    def __init__(self):
        self.ways = {}
        self.reached = self.total = 0
        self.missing = []

    def add(self, ways):
        """Whether there is something new in it."""
        is_new = False
        for file, arcs in ways.items():
            known = self.ways.setdefault(file, set())
            is_new = is_new or not arcs <= known
            known |= arcs
        return is_new

    def count(self):
        """Sets the figures, and the missing branches as "file:line -> line"."""
        together = new_coverage()
        together.get_data().add_arcs({file: self.ways.get(file, ()) for file in files()})
        with tempfile.NamedTemporaryFile(suffix=".xml") as report:
            together.xml_report(outfile=report.name)
            root = xml.etree.ElementTree.parse(report.name).getroot()
        self.total = int(root.get("branches-valid"))
        self.reached = int(root.get("branches-covered"))
        self.missing = []
        for module in root.iter("class"):
            for line in module.iter("line"):
                place = f"{module.get('name')}:{line.get('number')}"
                if line.get("missing-branches"):
                    self.missing.append(f"{place} -> {line.get('missing-branches')}")
                elif line.get("hits") == "0":
                    self.missing.append(f"{place} never run")

    @property
    def is_complete(self):
        return self.total > 0 and not self.missing
