# Random sequences of commands, frames, DNS answers, clock steps and reports:
# this kernel's module does and says what the model does.
#
#   br0 and its ports with bare cable ends, no clients
#
# Time limit: 10000000 seconds, nearly all of them asleep.
# MODEL_STEPS and MODEL_SEED come from lab/run-cases.

python3 /payload/tests/model/kernel_run "${MODEL_STEPS:?}" "${MODEL_SEED:?}" "$MODULE" "$CASE_DIR"
