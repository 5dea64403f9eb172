#!/usr/bin/env python3
"""Makes a target's corpus anew: of the inputs that are kept and those that runs
have found since, the few that reach most.

libFuzzer's merge tells which features (a branch and how often it was taken)
each input reaches; inputs are taken by how many they add, the small ones first.
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
MOST_FILES = 100


def reached(program, folders, work):
    """The inputs of the folders, each with the features that it reaches."""
    control = work / "control"
    merged = work / "merged"
    merged.mkdir()
    subprocess.run([program, "-merge=1", f"-merge_control_file={control}", "-timeout=60",
                    merged, *folders], cwd=work, check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    lines = control.read_text().splitlines()
    # Two numbers of files, their names, then a line of features for each.
    names = lines[2:2 + int(lines[0])]
    features = {}
    for line in lines[2 + int(lines[0]):]:
        kind, number, *values = line.split()
        if kind == "FT":
            features[pathlib.Path(names[int(number)])] = set(values)
    return features


def choose(features):
    covered = set()
    chosen = []
    while len(chosen) != MOST_FILES:
        best = max(features, key=lambda file: (len(features[file] - covered),
                                               -file.stat().st_size))
        if features[best] <= covered:
            break
        covered |= features.pop(best)
        chosen.append(best)
    return chosen, len(covered)


def main():
    if len(sys.argv) != 2:
        sys.exit(f"usage: {sys.argv[0]} TARGET")
    target = sys.argv[1]
    corpus = ROOT / "tests/fuzz/corpus" / target
    folders = [folder for folder in (corpus, ROOT / "build/fuzz" / target / "found")
               if folder.is_dir()]
    with tempfile.TemporaryDirectory() as work:
        work = pathlib.Path(work)
        chosen, count = choose(reached(ROOT / f"build/linux-fuzz/bin/fuzz_{target}",
                                       folders, work))
        kept = work / "kept"
        kept.mkdir()
        for file in chosen:
            shutil.copy(file, kept / file.name)
        shutil.rmtree(corpus, ignore_errors=True)
        shutil.copytree(kept, corpus)
    print(f"{target}: {len(chosen)} inputs reach {count} features")


if __name__ == "__main__":
    main()
