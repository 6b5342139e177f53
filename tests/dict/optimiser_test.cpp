int optimiser_placeholder;
