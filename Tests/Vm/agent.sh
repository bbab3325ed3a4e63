#!/bin/bash
# The test machine's side of the harness: reads a command a line, in base64, from its port, and
# answers with a line of exit status and output.
exec 3<>/dev/virtio-ports/agent
while IFS= read -r line <&3; do
    command=$(printf %s "$line" | base64 -d)
    output=$(bash -c "$command" 2>&1 3>&-)
    status=$?
    printf '%s %s\n' "$status" "$(printf %s "$output" | base64 -w0)" >&3
done
