int atom_placeholder;
