"""The scenarios that are for any driver, on radios."""

from story import story
from wsmlab.air_actions import AirStations
from wsmlab.radio import AirLab
from wsmlab.scenario import Scenario, for_any_driver


def on_radios(path):
    def play(air, anna, ben):
        stations = AirStations(air)
        try:
            Scenario.read(path).play_on(AirLab(air), stations)
        finally:
            stations.end()
        air.agree()
    play.__name__ = path.stem
    return play


for one in for_any_driver():
    story()(on_radios(one))
