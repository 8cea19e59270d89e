# Of the commands in `--help` what help2man understands: one a line, its options named after it.
/^[a-z]+$/ { h; N; s/\n */  /; s/^/  / }
/^  [A-Z][a-z]+:$/ d
/^    [^ ]/ { G; s/^    (.*)\n(.*)/  \2 \1/; s/ REQUIRED *$/  has to be given/ }
