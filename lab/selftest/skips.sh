# Expected verdict: skip
skip "it is meant to"
