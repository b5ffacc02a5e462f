// placeholder until the emulator lands
