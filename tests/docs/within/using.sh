# What a user does with a tarball: a copy of the sources without a history, and a PREFIX of the user's choice.
# long
mkdir -p "$WORK/sources"
for entry in CMakeLists.txt CMakePresets.json cmake include src bindings; do
    cp -r "$PROJECT/$entry" "$WORK/sources"
done
cd "$WORK/sources"
PREFIX=$WORK/prefix
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}
{
BLOCK
} >"$WORK/log" 2>&1 || { cat "$WORK/log"; exit 1; }

# A program builds against what was installed, and the stamp names the version.
export PKG_CONFIG_PATH=$(dirname "$(find "$PREFIX" -name tav_im_nbr.pc)")
$CXX -std=c++17 "$PROJECT/tests/install/consumer.cpp" $(pkg-config --cflags --libs tav_im_nbr) -o "$WORK/consumer"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir tav_im_nbr) "$WORK/consumer" |
    grep -Eq '^([0-9]+\.[0-9]+\.[0-9]+) [0-9]+\.v\1$' || { echo "the stamp does not name the version"; exit 1; }
