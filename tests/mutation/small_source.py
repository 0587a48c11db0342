"""What tools/mutate makes of small.cpp: which mutants it finds, that all of them stand in one program, and which of them
the checks in small.cpp's main() notice and reach (small.txt)."""

import os
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
SOURCE = pathlib.Path(os.environ["SOURCE"])
sys.path.insert(0, str(SOURCE / "tools"))
from mutation.source import Rewritten, Source, changed_char, changed_number, changed_text  # noqa: E402


def main():
    failures = []

    def expect(what, seen, wanted):
        if seen != wanted:
            failures.append(f"{what}: {seen!r}, not {wanted!r}")

    for text, wanted in (("0", "1"), ("0x0F", "0x10"), ("9u", "10u"), ("100'000", "110000"), ("0666", "0667"), ("100ms", "101ms"),
                         ("1.5", "2.5"), ("1'000ULL", "1001ULL")):
        expect(text, changed_number(text), wanted)
    for text, wanted in (("'a'", "'b'"), ("'9'", "'8'"), ("'\\n'", "'\\t'"), ("' '", "'_'")):
        expect(text, changed_char(text), wanted)
    for text, wanted in (('"%d abc"', '"%d bbc"'), ('""', '"x"'), ('"\\r\\n"', '"\\n\\n"'), ('"\\x01z"', '"\\x01y"'), ('"a"sv', '"b"sv')):
        expect(text, changed_text(text), wanted)

    source = Source((SOURCE / "tests/mutation/small.cpp").read_text(encoding="latin-1"))
    checks = source.text.index("int main(")
    mutants = [mutant for mutant in source.mutants if mutant.start < checks]
    for number, mutant in enumerate(mutants, 1):
        mutant.id = number
    size = {start for start, (_, _, name) in source.constants.items() if name == "SIZE"}
    compiled = [mutant for mutant in mutants if mutant.group not in size]
    rewritten = Rewritten(source, compiled)
    expect("mutants that cross others", rewritten.dropped, set())

    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "small.cpp").write_text(rewritten.text)
        program = folder / "small"
        subprocess.run([os.environ["CXX"], "-std=c++20", "-w", "-Wno-narrowing", f"-I{SOURCE}", str(folder / "small.cpp"),
                        str(SOURCE / "tools/mutation/mutant.cpp"), "-o", str(program)], check=True)
        expect("without a mutant", subprocess.run([program], timeout=60).returncode, 0)
        record = folder / "record"
        record.write_bytes(bytes(len(mutants) + 1))
        expect("recording", subprocess.run([program], env={"TAV_MUTANT_RECORD": str(record)}, timeout=60).returncode, 0)
        reached = record.read_bytes()
        seen = []
        for mutant in compiled:
            try:
                status = subprocess.run([program], env={"TAV_MUTANT": str(mutant.id)}, timeout=60).returncode
            except subprocess.TimeoutExpired:
                status = "hangs"
            outcome = "killed" if status != 0 else "survived" if reached[mutant.id] else "unreached"
            seen.append(f"{source.line(mutant.start)} {source.change(mutant)}: {outcome}")
    wanted = (SOURCE / "tests/mutation/small.txt").read_text().splitlines()
    for line in wanted:
        if line not in seen:
            failures.append(f"not found: {line}")
    for line in seen:
        if line not in wanted:
            failures.append(f"not wanted: {line}")
    print("\n".join(failures) if failures else f"{len(seen)} mutants, as expected")
    return 1 if failures else 0


sys.exit(main())
