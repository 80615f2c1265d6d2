#!/usr/bin/env bash
# Reads the Windows workflow with a YAML parser and checks that it still does what a release needs:
# a Windows runner, Qt from a pinned action, configure, build, the tests, the packages and their upload.
# Exit code 77: no Python with the YAML module (Debian package python3-yaml).
set -euo pipefail
python=/usr/bin/python3
[ -x "$python" ] || python=python3
"$python" -c 'import yaml' 2>/dev/null || {
    echo "Skipped: no Python YAML module (Debian package python3-yaml)"
    exit 77
}
exec "$python" - "$1" <<'PYTHON'
import sys
import yaml

with open(sys.argv[1], encoding="utf-8") as f:
    workflow = yaml.safe_load(f)

problems = []
# YAML 1.1 reads the bare key `on` as true.
if "on" not in workflow and True not in workflow:
    problems.append("no trigger")
for name, job in workflow["jobs"].items():
    steps = job["steps"]
    runs = "\n".join(step.get("run", "") for step in steps)
    uses = [step["uses"] for step in steps if "uses" in step]
    if not str(job["runs-on"]).startswith("windows-"):
        problems.append(f"{name}: not on a Windows runner")
    for action in uses:
        if "@" not in action:
            problems.append(f"{name}: {action} is not pinned to a version")
    if not any(action.startswith("jurplel/install-qt-action@") for action in uses):
        problems.append(f"{name}: Qt is not installed by the pinned action")
    if not any(action.startswith("actions/upload-artifact@") for action in uses):
        problems.append(f"{name}: the installer is not uploaded")
    for command in ("cmake -S", "cmake --build", "ctest ", "cpack "):
        if command not in runs:
            problems.append(f"{name}: no '{command.strip()}' step")

for problem in problems:
    print("FAIL:", problem)
print(f"{sys.argv[1]}: {len(workflow['jobs'])} job(s) read, {len(problems)} problem(s)")
sys.exit(1 if problems else 0)
PYTHON
