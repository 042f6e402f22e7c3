# What checks share that edit one source file and run what becomes of it: sourced with the folders
# `source` and `build` set. The build is one by Ninja, which knows how each file is made.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# rebuild LIBRARY FILE EDIT: makes a library of the build tree in the variant's, with FILE edited.
rebuild() {
    local library=$1 file=$2 edit=$3 object=$work/edited.o commands line place
    sed -E "$edit" "$source/$file" >"$work/edited.cpp"
    if cmp -s "$source/$file" "$work/edited.cpp"; then
        printf 'FAIL  changes nothing in %s: %s\n' "$file" "$edit"
        return 1
    fi
    commands=$(ninja -C "$build" -t commands "$library" | grep -v '^ninja: ')
    line=$(grep -F -- "-c $source/$file" <<<"$commands")
    place=$(sed -E 's/.* -o ([^ ]+) -c .*/\1/' <<<"$line")
    line=${line/-c $source\/$file/-c $work/edited.cpp}
    line=${line/-o $place/-o $object}
    rm "$work/tree/$library"
    # The last command makes the library of its objects, and splits its debug information off.
    commands=$(tail -n 1 <<<"$commands")
    commands=${commands/" $place "/" $object "}
    commands=${commands//"$build/$library"/"$library"}
    commands=${commands//"$library"/"$work/tree/$library"}
    (cd "$build" && eval "$line -MF $work/edited.d" && eval "$commands")
}

# plant FOLDER...: the programs of these folders in a tree of their own, with links to all that they
# open beside themselves.
plant() {
    local folder
    rm -rf "$work/tree"
    mkdir -p "$work/tree/host" "$work/tree/adapterlayer"
    for folder; do
        mkdir -p "$work/tree/$folder"
        cp "$build/$folder/oemlayer_$folder" "$work/tree/$folder"
    done
    ln -s "$source/host/scenarios" "$work/tree/host"
    cp -rs "$build/device" "$work/tree/device"
    ln -s "$build/adapterlayer/camera.oemlayer.adapter.so" "$work/tree/adapterlayer"
    ln -s "$build/layer" "$work/tree/layer"
}
