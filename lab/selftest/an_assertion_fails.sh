# Expected verdict: fail, with the text: number of horses: wanted '3', got '4'
expect_equal "number of horses" 3 4
