int ring_placeholder;
