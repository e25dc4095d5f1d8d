#!/usr/bin/env python3
"""Compare the engine with independent analyses of real spectra; print the results.

The output is docs/engine-results.md without its findings, scintillators and simulations.

PYORV3_SPECTRA is the folder of the spectra, PYTHONPATH the folder with the product.
"""

import sys
import tempfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent
sys.path[:0] = str(PROJECT / "tests/python"), str(PROJECT / "tests/python/on_embedded")

import nuclide_results  # noqa: E402
import real_spectra  # noqa: E402

HEAD = """# Engine results

Results of the engine for published spectra, with a limit of 5 sigma.

The tables below have the figures of each spectrum, and the appendices its peaks and nuclides.
[engine.md](engine.md) explains the method, its assumptions and allowances. This command prints the page
without the table of findings, scintillators, absorbers, line lists, mixtures and bare files:

```sh
PYORV3_SPECTRA=FOLDER PYTHONPATH=build/linux/product benchmarks/engine_results.py
```

## Nuclides

The identification works with the built-in library of 295 nuclides and without an efficiency calibration. A
nuclide is found if its confidence is at least 0.5, and wrong if it is neither in the source nor in the natural
background. Energy and width calibrations were made by hand. The seconds are CPU time. Run
`benchmarks/nuclide_results.py` to get only this table.
"""

PEAKS = """
## Peaks

The peaks are compared with an independent analysis of each spectrum. Two peaks are the same if they are
within 0.75 of their width. A peak is *certain* if its likelihood gain in the independent analysis is at
least 6 sigma. Other peaks are *explained* by a table of background, X-ray, sum, escape and source
lines, or false.

| spectrum | certain | found | peaks | explained | false |
|---|---|---|---|---|---|"""


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |")


def heading(text, *columns):
    print(f"\n{text}\n")
    row(*columns)
    row(*("---" for _ in columns))


def show(name, comparison, results):
    print(f"\n### {name}\n\n{comparison.case['what']}.")
    heading(
        "Peaks in both analyses:",
        *("energy, keV", "area", "area there", "significance", "significance there", "chi-square"),
    )
    for number, index in sorted(comparison.pairs):
        listed, peak = comparison.case["peaks"][number], comparison.found[index]
        row(
            f"{peak.energy:.2f}",
            f"{peak.area:.0f} ± {peak.area_uncertainty:.0f}",
            f"{listed['area']:.0f} ± {listed['uncertainty']:.0f}",
            f"{peak.significance:.1f}",
            f"{listed['significance']:.1f}",
            f"{peak.chi_square:.2f}",
        )
    if comparison.missing:
        heading("Certain, and missing:", "energy, keV", "area", "significance")
        for peak in comparison.missing:
            row(f"{peak['energy']:.2f}", f"{peak['area']:.0f}", f"{peak['significance']:.1f}")
    if comparison.explained:
        heading("Beyond the list:", "energy, keV", "area", "significance", "explanation")
        for peak, why in comparison.explained:
            area = f"{peak.area:.0f} ± {peak.area_uncertainty:.0f}"
            row(f"{peak.energy:.2f}", area, f"{peak.significance:.1f}", why or "**false**")
    areas = list(comparison.areas())
    if areas:
        heading("Areas measured in another way:", "method", "area", "other area", "part of allowed")
        for name, area, other, part in areas:
            row(name, f"{area:.0f}", other, f"{part:+.2f}")
    found = ", ".join(f"{one.name} ({one.confidence:.2f})" for one in results.nuclides)
    print(f"\nIdentified, with confidence: {found or 'none'}.")


def main():
    analyses = {}
    with tempfile.TemporaryDirectory() as folder:
        for name in real_spectra.cases():
            case, results = real_spectra.analysed(name, f"{folder}/{name}.qar")
            analyses[name] = (real_spectra.Comparison(name, case, results.peaks), results)
    measured = nuclide_results.analyse_all()
    print(HEAD)
    nuclide_results.show_table(measured)
    print(PEAKS)
    totals = [0, 0, 0, 0, 0]
    for name, (comparison, _) in analyses.items():
        numbers = (
            comparison.certain,
            comparison.certain - len(comparison.missing),
            len(comparison.found),
            len(comparison.explained) - len(comparison.false),
            len(comparison.false),
        )
        totals = [total + number for total, number in zip(totals, numbers)]
        row(name, *numbers)
    row("all", *totals)
    print("\n## Appendix: peaks of each spectrum")
    for name, (comparison, results) in analyses.items():
        show(name, comparison, results)
    print("\n## Appendix: nuclides of each spectrum")
    for file, _, _, analysis, _ in measured:
        nuclide_results.show_records(file, analysis)


if __name__ == "__main__":
    main()
