# Expected verdict: fail, with the text: killed after
sleep 1000
