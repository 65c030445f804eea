#!/bin/bash
# The manual pages describe everything users can type: every option `lldp-agent --help`
# and `lldp --help` print, every command of `lldp`, and every line of the configuration
# language (as the parser lists them). groff finds nothing to warn about in any page.
#   ManPagesTest.sh SOURCE_DIR LLDP_AGENT LLDP CONFIG_USAGES
set -u
src="$1" agent="$2" cli="$3" usages="$4"
failed=0
fail() { echo "FAIL: $*" >&2; failed=1; }

# A page's text as a reader sees it: no font changes, plain hyphens and backslashes, one
# space between words.
text() {
  sed -e 's/\\f[BIRP]//g' -e 's/\\-/-/g' -e 's/\\e/\\/g' -e 's/^\.[A-Z][A-Z]* *//' "$1" \
    | tr -s ' \t' '  '
}
has() { grep -qF -- "$2" <<<"$1"; }

agent_page=$(text "$src/packaging/lldp-agent.8")
cli_page=$(text "$src/packaging/lldp.8")
conf_page=$(text "$src/packaging/lldp-agent.conf.5")

for opt in $("$agent" --help | grep -oE -- '--[a-z][a-z-]+' | sort -u); do
  has "$agent_page" "$opt" || fail "lldp-agent(8) does not describe $opt"
done
cli_help=$("$cli" --help)
for opt in $(grep -oE -- '--[a-z][a-z-]+' <<<"$cli_help" | sort -u); do
  has "$cli_page" "$opt" || fail "lldp(8) does not describe $opt"
done
# Commands: the lines of the Commands section that start with a keyword, up to the first
# optional or variable part.
while read -r cmd; do
  has "$cli_page" "$cmd" || fail "lldp(8) does not describe the command '$cmd'"
done < <(sed -n '/^Commands:/,/^Options/p' <<<"$cli_help" | grep -E '^  [a-z]' \
           | sed -E 's/^  //; s/ *[[A-Z].*//; s/ *\.\.\.$//')

n=0
while read -r usage; do
  n=$((n + 1))
  has "$conf_page" "$usage" || fail "lldp-agent.conf(5) does not describe '$usage'"
done < <("$usages")
[ "$n" -gt 20 ] || fail "the parser listed only $n commands"

for page in lldp-agent.8 lldp.8 lldp-agent.conf.5; do
  out=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$src/packaging/$page" 2>&1 >/dev/null)
  [ -z "$out" ] || fail "$page: $out"
done
[ $failed = 0 ] && echo "manual pages OK"
exit $failed
