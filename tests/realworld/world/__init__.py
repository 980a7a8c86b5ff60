"""The neighbours of a home appliance, each the real program, in network namespaces."""
