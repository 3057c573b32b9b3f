#!/usr/bin/env bash
# The manual page and docs/tool.md say what the tool says of itself.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
"$1/script/tool-docs" "$2/tools/dp4/dp4" --check
