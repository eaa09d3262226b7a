"""Settings of all Python tests: no files left behind, the same examples every time."""
import sys
import tempfile

from hypothesis import Phase, configuration, settings

sys.dont_write_bytecode = True
configuration.set_hypothesis_home_dir(tempfile.gettempdir())
settings.register_profile("kipx", database=None, deadline=None, derandomize=True, max_examples=8,
                          phases=(Phase.explicit, Phase.generate))
settings.load_profile("kipx")
