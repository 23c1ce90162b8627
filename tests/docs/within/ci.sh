# What CI runs as it stands: .ci/run.
while read -r command; do
    command=${command%%#*}
    command=${command%"${command##*[! ]}"}
    grep -qxF -- "$command" "$PROJECT/.ci/run" || { echo "not in .ci/run: $command"; exit 1; }
done <<'END'
BLOCK
END
