# Shell functions of the samples layer, which the engine finds among the
# layer's files unpacked into TEMP_FOLDER/samples.

# How many example files the layer brings.
count_samples() {
    export LI_SAMPLES_COUNT=$(ls "$LI_TEMP_FOLDER"/samples/example-* 2>/dev/null | wc -l)
}
