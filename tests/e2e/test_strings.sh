#!/usr/bin/env bash
# A package with an English and a German string table: the language comes
# from --lang or the LANG variable, an unknown one falls back to default, and
# a strings.ini under STRING_TABLE_ROOT replaces the package's own.
source "$(dirname "$0")/lib.sh"

P=$T/pkg
mkdir -p "$P" "$T/tmp"
: >"$P/product.ini"
printf 'default:_internal_:strings_en.xml\nen:_internal_:strings_en.xml\nde:_internal_:strings_de.xml\n' \
  >"$P/strings.ini"
cat >"$P/strings_en.xml" <<'X'
<strings>
<string name="welcome">Welcome to the installation</string>
<string name="question">Do you accept the license? ("yes" or "no")</string>
<include component="texts" file="license_en.xml"/>
</strings>
X
cat >"$P/strings_de.xml" <<'X'
<strings>
<string name="welcome">Willkommen zur Installation</string>
<string name="question">Akzeptieren Sie die Lizenz? „ja“ oder „nein“</string>
<include component="texts" file="license_de.xml"/>
</strings>
X
echo '<string name="license">License text
on two lines</string>' >"$P/license_en.xml"
echo '<string name="license">Lizenztext für Größe und Übernahme</string>' >"$P/license_de.xml"
make_package "$P" <<'M'
file product.ini component=_internal_
file strings.ini component=_internal_
file strings_en.xml component=_internal_
file strings_de.xml component=_internal_
file license_en.xml component=texts
file license_de.xml component=texts
M

# Runs the packaged engine in string mode and prints the three strings as
# bash reads them back.
strings_of() { # environment-LANG arguments...
  local lang=$1
  shift
  (cd "$T" && env LANG="$lang" LC_CTYPE= "$P/bin/kelm" --TEMP_FOLDER="$T/tmp/run" --__get_string__ "$T/out.sh" \
    --string_ids "welcome;question;license" "$@" >/dev/null 2>"$T/err") || fail "string mode status $?"
  bash -c 'eval "$(cat "$1")"; printf "%s|" "$LI_welcome" "$LI_question" "$LI_license"' _ "$T/out.sh"
}

german='Willkommen zur Installation|Akzeptieren Sie die Lizenz? „ja“ oder „nein“|Lizenztext für Größe und Übernahme|'
english='Welcome to the installation|Do you accept the license? ("yes" or "no")|License text
on two lines|'

assert_eq "$german" "$(strings_of en --lang de)" "--lang de gives German over LANG"
assert_eq "$german" "$(strings_of de)" "LANG=de gives German"
assert_eq "$english" "$(strings_of en)" "LANG=en gives English"
assert_eq "$english" "$(strings_of fr_FR.UTF-8)" "an unknown language falls back to default"
assert_eq "$english" "$(strings_of "")" "no language at all binds default"

# A strings.ini in STRING_TABLE_ROOT replaces the package's: here it knows
# German only by a file of its own in the engine's directory.
mkdir -p "$T/override"
printf 'de::strings_local.xml\ndefault:_internal_:strings_en.xml\n' >"$T/override/strings.ini"
echo '<string name="welcome">Lokal</string>' >"$P/bin/strings_local.xml"
assert_eq "Lokal|||" "$(strings_of de --STRING_TABLE_ROOT "$T/override")" "STRING_TABLE_ROOT overrides the package"

finish
