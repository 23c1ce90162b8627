# The commands that make a wheel, on what this build has made in the place of a release.
BUILD=${WORK%/tests/docs-work/*}
PREFIX=$WORK/prefix
cmake() {
    command cmake "${@/build\/release/$BUILD}"
}
export PYTHONDONTWRITEBYTECODE=1
cd "$PROJECT"
{
BLOCK
} >"$WORK.log" 2>&1 || { cat "$WORK.log"; exit 1; }
PYTHONPATH=$PREFIX/site python3 -c 'import tav_im; print(tav_im.version())'
