# Expected verdict: fail, with the text: "false" ended with status 1
false
true
