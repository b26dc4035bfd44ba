# What the packaging tests share: failing with a message, and checking that a file is there.
fail() {
  echo "FAIL: $*" >&2
  exit 1
}

expect_file() {
  [ -f "$1" ] || fail "missing: $1"
}
